// Questions to the real kernel, and what it answers when it cannot.

#include "platform/linux/netlink.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sched.h>
#include <sys/socket.h>

class LinuxNetlink : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(unshare(CLONE_NEWNET), 0);
        ASSERT_EQ(linuxNetlinkOpen(), 0);
    }

    static int count(const nlmsghdr *, void *messages) {
        ++*static_cast<uint32_t *>(messages);
        return MNL_CB_OK;
    }

    // Lists the interfaces of a network namespace, -1: the own one.
    static int32_t listLinks(int32_t ofNamespace, uint32_t *messages) {
        LinuxNetlinkQuestion question{};
        nlmsghdr *message = mnl_nlmsg_put_header(question.bytes);
        message->nlmsg_type = RTM_GETLINK;
        message->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
        mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg));
        if (ofNamespace >= 0) {
            mnl_attr_put_u32(message, IFLA_TARGET_NETNSID, static_cast<uint32_t>(ofNamespace));
        }
        *messages = 0;
        return linuxNetlinkAsk(&question, count, messages);
    }
};

// The kernel says so where the list ends, and not in a message of its own.
TEST_F(LinuxNetlink, AListThatBreaksOffIsAnError) {
    uint32_t messages = 0;
    EXPECT_EQ(listLinks(-1, &messages), 0);
    EXPECT_GE(messages, 1u); // lo
    EXPECT_EQ(listLinks(12345, &messages), -EINVAL);
    EXPECT_EQ(messages, 0u);
    EXPECT_EQ(listLinks(-1, &messages), 0) << "the next question is answered";
    EXPECT_GE(messages, 1u);
}
