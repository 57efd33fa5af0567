#include "l2/dhcp6snooping/main/Dhcp6Snooping.h"

int main(int, char **argv) {
    uint32_t queueId = 0;
    const int32_t started = dhcp6snooping_startup(argv[0], &queueId);
    if (started != 0)
        return started;
    for (;;)
        dhcp6snooping_serve_message(queueId);
}
