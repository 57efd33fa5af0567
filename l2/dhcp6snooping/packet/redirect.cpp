// A file of its own, so that only a program that asks for the redirect needs the filter library.

#include "l2/dhcp6snooping/packet/capture.h"
#include "platform/libqacl.h"

int32_t dhcp6snooping_redirect_dhcp_packets_to_cpu() {
    FRM_OperateDhcp6FilterResource(FRM_OP_INSTALL);
    FRM_InstallGlobalForwardIcmp6NdFilterResource();
    return 0;
}

int32_t dhcp6snooping_undo_redirect_dhcp_packets_to_cpu() {
    FRM_OperateDhcp6FilterResource(FRM_OP_REMOVE);
    FRM_RemoveGlobalForwardIcmp6NdFilterResource();
    return 0;
}
