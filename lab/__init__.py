"""A private switch for tests and for the demonstration.

Everything happens in namespaces that are made for one run: a network namespace holds a kernel bridge with four ports, and
every port leads to a host in a namespace of its own, where real DHCPv6 servers and clients run, or frames are sent and
captured as they are. Nothing of it is visible outside, and nothing can stay behind: all processes live in one process
namespace that ends with the run, however it ends.

sandbox    the namespaces of a run, and what the kernel must offer for them
netns      doing something in a network namespace
switch     the bridge, its ports and its hosts
vlans      the bridge as one that filters VLANs
bonds      bonds of the ports
wire       frames as they are: send, capture, count
storm      one host sends as fast as it can
patience   how long it waits
memory     how much of it a process uses
flow       where did it go: what came out of which port, and nothing else
frames     Ethernet, IPv6 with extension headers, UDP, DHCPv6: built and read in words
daemon     snoopd6: start, ready, stop, crash; the command shell
calls      the daemon's socket, spoken directly
information  options 18 and 37: what is to be added, and the frames that should come of it
decode     what scapy and tshark read in a frame
exchanges  what clients and a server say to each other
neighbours neighbour and multicast listener discovery, byte by byte
slaac      real hosts that configure themselves, and radvd
encapsulations, sweep  ways to wrap a datagram, and which of them a real host unwraps
thc        the attack programs of thc-ipv6
kea        a real server           clients    real clients
snmp       a real snmpd, the sub-agent, the net-snmp tools
settings   random configurations
package    the Debian package, built    machine    this machine with changes kept in memory, to install it on
service    systemctl without systemd    confine    what a unit takes from a program
demo       the demonstration that ./run shows
"""
