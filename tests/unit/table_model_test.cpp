// The table against a plain std::map, over thousands of random steps.

#include "l2/dhcp6snooping/clients/bulk.h"
#include "l2/dhcp6snooping/clients/limits.h"
#include "tests/unit/fixture.h"

#include <array>
#include <cstring>
#include <map>
#include <random>

namespace {

using Mac = std::array<uint8_t, 6>;

struct ModelClient {
    uint32_t vlan, port;
    std::vector<uint8_t> leases; // last byte of the address
};

using Model = std::map<Mac, ModelClient>;

Dhcp6LeaseAttr leaseNumber(uint8_t number) {
    Dhcp6LeaseAttr lease = {};
    lease.address[0] = 0x20;
    lease.address[15] = number;
    lease.prefix_len = 128;
    return lease;
}

void expectSame(const Model &model) {
    const Dhcp6SnoopingNode *node = dhcp6snooping_first_avlnode();
    std::array<uint32_t, 28> ports = {};
    std::map<uint32_t, uint32_t> vlans;
    for (const auto &[mac, client] : model) {
        ASSERT_NE(node, nullptr);
        ASSERT_EQ(memcmp(node->mac, mac.data(), 6), 0);
        ASSERT_EQ(node->vlan, client.vlan);
        ASSERT_EQ(node->port, client.port);
        ASSERT_EQ(node->leases.count, client.leases.size());
        for (size_t i = 0; i < client.leases.size(); i++)
            ASSERT_EQ(static_cast<Dhcp6LeaseAttr *>(node->leases.items[i])->address[15], client.leases[i]);
        ports[client.port - 1]++;
        vlans[client.vlan]++;
        node = dhcp6snooping_next_avlnode(node->mac);
    }
    ASSERT_EQ(node, nullptr);
    ASSERT_EQ(listDhcp6SnoopingAvlNode.count, 2048 - model.size());
    for (uint32_t p = 0; p < 28; p++)
        ASSERT_EQ(dhcp6SnoopingPortIpNum[p], ports[p]);
    for (uint32_t v = 0; v < 8; v++)
        ASSERT_EQ(dhcp6SnoopingDhcpVlanIpNum[v], vlans[v]);
}

struct TableModelTest : SnoopingTest, testing::WithParamInterface<uint32_t> {};

TEST_P(TableModelTest, DoesWhatAMapDoes) {
    std::mt19937 random(GetParam());
    const auto below = [&random](uint32_t limit) { return static_cast<uint32_t>(random() % limit); };
    const auto byte = [&below](uint32_t limit) { return static_cast<uint8_t>(below(limit)); };
    Model model;
    for (int step = 0; step < 4000; step++) {
        const Mac mac = {byte(2) != 0 ? uint8_t{0xFF} : uint8_t{2}, 0, 0, byte(2), byte(4), byte(8)};
        const uint32_t vlan = below(8), port = 1 + below(28);
        switch (below(12)) {
        default: {
            Dhcp6SnoopingNode *client = dhcp6snooping_add_avlnode(mac.data());
            ASSERT_NE(client, nullptr);
            if (model.count(mac) == 0) {
                client->vlan = vlan;
                client->port = port;
                client->counted = 1;
                dhcp6SnoopingPortIpNum[port - 1]++;
                dhcp6SnoopingDhcpVlanIpNum[vlan]++;
                model[mac] = {vlan, port, {}};
            }
            const Dhcp6LeaseAttr lease = leaseNumber(byte(30));
            dhcp6snooping_attr_array_add(&client->leases, &lease, sizeof lease);
            model[mac].leases.push_back(lease.address[15]);
            break;
        }
        case 1:
        case 2:
            ASSERT_EQ(dhcp6snooping_delete_avlnode(mac.data()), 0u);
            model.erase(mac);
            break;
        case 3: {
            const auto found = model.upper_bound(mac);
            const Dhcp6SnoopingNode *next = dhcp6snooping_next_avlnode(mac.data());
            ASSERT_EQ(next == nullptr, found == model.end());
            if (next != nullptr) {
                ASSERT_EQ(memcmp(next->mac, found->first.data(), 6), 0);
            }
            ASSERT_EQ(dhcp6snooping_get_avlnode(mac.data()) != nullptr, model.count(mac) != 0);
            break;
        }
        case 4:
            ASSERT_EQ(dhcp6snooping_delete_by_port(port), 0u);
            std::erase_if(model, [port](const auto &entry) { return entry.second.port == port; });
            break;
        case 5:
            if (below(4) == 0) {
                ASSERT_EQ(dhcp6snooping_delete_by_vlan(vlan), 0u);
                std::erase_if(model, [vlan](const auto &entry) { return entry.second.vlan == vlan; });
            }
            break;
        case 6: {
            const Dhcp6LeaseAttr wanted = leaseNumber(byte(30));
            ASSERT_EQ(dhcp6snooping_delete_by_ip(wanted.address), 0u);
            for (auto client = model.begin(); client != model.end(); ++client) {
                auto &leases = client->second.leases;
                const auto lease = std::find(leases.begin(), leases.end(), wanted.address[15]);
                if (lease == leases.end())
                    continue;
                leases.erase(lease);
                if (leases.empty())
                    model.erase(client);
                break;
            }
            break;
        }
        case 7:
            ASSERT_EQ(dhcp6snooping_delete_by_mac(mac.data()), 0u);
            model.erase(mac);
            break;
        case 8:
            if (below(100) == 0) {
                ASSERT_EQ(dhcp6snooping_delete_all(), 0u);
                model.clear();
            }
            break;
        }
        ASSERT_NO_FATAL_FAILURE(expectSame(model)) << "step " << step;
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, TableModelTest, testing::Values(11u, 12u, 13u));

} // namespace
