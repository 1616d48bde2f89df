#include "host/scenario/Demo.h"

namespace NimbalHost {

std::string const& demoScenarioText() {
   // The switch keeps 23 system classes on static queues so that each of its 16 x 23 kernel
   // CoPP keys finds a VXLAN entry in the pool of 512.
   static std::string const text = R"json({
  "description": "The demo: a 16-port switch with the VXLAN source-port workaround, three policed classes (one on a dynamic CPU queue), VXLAN with one recirculation interface, a flood and a quiet flow, the two show tables, a poll, a clear and a verify.",
  "switch": {
    "interfaceRanges": [{"prefix": "Ethernet", "first": 1, "count": 16, "modId": 0, "port": 1}],
    "vxlanWorkaround": true,
    "cpuQueues": [
    {"id": 0, "name": "CoppSystemDrop", "rate": 0, "burst": 0},
    {"id": 1, "name": "CoppSystemBgp", "rate": 5000, "burst": 500, "classes": ["copp-system-bgp"]},
    {"id": 2, "name": "CoppSystemOspf", "rate": 2500, "burst": 250, "classes": ["copp-system-ospf"]},
    {"id": 3, "name": "CoppSystemIsis", "rate": 2500, "burst": 250, "classes": ["copp-system-isis"]},
    {"id": 4, "name": "CoppSystemBfd", "rate": 5000, "burst": 500, "classes": ["copp-system-bfd"]},
    {"id": 5, "name": "CoppSystemLacp", "rate": 1000, "burst": 100, "classes": ["copp-system-lacp"]},
    {"id": 6, "name": "CoppSystemLldp", "rate": 500, "burst": 50, "classes": ["copp-system-lldp"]},
    {"id": 7, "name": "CoppSystemStp", "rate": 1000, "burst": 100, "classes": ["copp-system-stp"]},
    {"id": 8, "name": "CoppSystemArp", "rate": 1000, "burst": 100, "classes": ["copp-system-arp"]},
    {"id": 9, "name": "CoppSystemArpResolver", "rate": 1000, "burst": 100, "classes": ["copp-system-arpresolver"]},
    {"id": 10, "name": "CoppSystemNd", "rate": 1000, "burst": 100, "classes": ["copp-system-nd"]},
    {"id": 11, "name": "CoppSystemIpUnicast", "rate": 1000, "burst": 100, "classes": ["copp-system-ipunicast"]},
    {"id": 12, "name": "CoppSystemIpMcast", "rate": 1000, "burst": 100, "classes": ["copp-system-ipmc"]},
    {"id": 13, "name": "CoppSystemIpMcastMiss", "rate": 1000, "burst": 100, "classes": ["copp-system-ipmcmiss"]},
    {"id": 14, "name": "CoppSystemL3Ttl1", "rate": 500, "burst": 50, "classes": ["copp-system-l3ttl1"]},
    {"id": 15, "name": "CoppSystemL3SlowPath", "rate": 500, "burst": 50, "classes": ["copp-system-l3slowpath"]},
    {"id": 16, "name": "CoppSystemL2Broadcast", "rate": 500, "burst": 50, "classes": ["copp-system-l2broadcast"]},
    {"id": 17, "name": "CoppSystemL2Unknown", "rate": 500, "burst": 50, "classes": ["copp-system-l2unknown"]},
    {"id": 18, "name": "CoppSystemAclLog", "rate": 500, "burst": 50, "classes": ["copp-system-acllog"]},
    {"id": 19, "name": "CoppSystemSflow", "rate": 2000, "burst": 200, "classes": ["copp-system-sflow"]},
    {"id": 20, "name": "CoppSystemIgmp", "rate": 1000, "burst": 100, "classes": ["copp-system-igmp"]},
    {"id": 21, "name": "CoppSystemPim", "rate": 1000, "burst": 100, "classes": ["copp-system-pim"]},
    {"id": 22, "name": "CoppSystemMld", "rate": 1000, "burst": 100, "classes": ["copp-system-mld"]},
    {"id": 23, "name": "CoppSystemVrrp", "rate": 1000, "burst": 100, "classes": ["copp-system-vrrp"]},
    {"id": 24, "name": "CoppSpare24", "rate": 500, "burst": 50},
    {"id": 25, "name": "CoppSpare25", "rate": 500, "burst": 50},
    {"id": 26, "name": "CoppSpare26", "rate": 500, "burst": 50},
    {"id": 27, "name": "CoppSpare27", "rate": 500, "burst": 50},
    {"id": 28, "name": "CoppSpare28", "rate": 500, "burst": 50},
    {"id": 29, "name": "CoppSpare29", "rate": 500, "burst": 50},
    {"id": 30, "name": "CoppSpare30", "rate": 500, "burst": 50},
    {"id": 31, "name": "CoppSpare31", "rate": 500, "burst": 50},
    {"id": 32, "name": "CoppSpare32", "rate": 500, "burst": 50},
    {"id": 33, "name": "CoppSpare33", "rate": 500, "burst": 50},
    {"id": 34, "name": "CoppSpare34", "rate": 500, "burst": 50},
    {"id": 35, "name": "CoppSpare35", "rate": 500, "burst": 50},
    {"id": 36, "name": "CoppSpare36", "rate": 500, "burst": 50},
    {"id": 37, "name": "CoppSpare37", "rate": 500, "burst": 50},
    {"id": 38, "name": "CoppSpare38", "rate": 500, "burst": 50},
    {"id": 39, "name": "CoppSpare39", "rate": 500, "burst": 50},
    {"id": 40, "name": "CoppUserDefined1", "rate": 1000, "burst": 100, "dynamic": true},
    {"id": 41, "name": "CoppUserDefined2", "rate": 1000, "burst": 100, "dynamic": true},
    {"id": 42, "name": "CoppUserDefined3", "rate": 1000, "burst": 100, "dynamic": true},
    {"id": 43, "name": "CoppUserDefined4", "rate": 1000, "burst": 100, "dynamic": true},
    {"id": 44, "name": "CoppUserDefined5", "rate": 1000, "burst": 100, "dynamic": true},
    {"id": 45, "name": "CoppUserDefined6", "rate": 1000, "burst": 100, "dynamic": true},
    {"id": 46, "name": "CoppUserDefined7", "rate": 1000, "burst": 100, "dynamic": true},
    {"id": 47, "name": "CoppUserDefined8", "rate": 1000, "burst": 100, "dynamic": true}
    ]
  },
  "steps": [
    {"police": {"interface": "Ethernet1", "class": "copp-system-bgp", "cir": 400, "bc": 40}},
    {"police": {"interface": "Ethernet2", "class": "copp-system-lldp", "cir": 100, "bc": 10}},
    {"police": {"interface": "Ethernet3", "class": "copp-user-telemetry", "cir": 300, "bc": 30}},
    {"vxlan": true},
    {"recirc": {"interface": "Ethernet16", "enabled": true}},
    {"traffic": {"interface": "Ethernet1", "class": "copp-system-bgp", "pps": 1000, "seconds": 2}},
    {"traffic": {"interface": "Ethernet3", "class": "copp-user-telemetry", "pps": 200, "seconds": 2}},
    {"traffic": {"interface": "Ethernet5", "class": "copp-system-lacp", "pps": 500, "seconds": 1, "vxlan": true}},
    {"show": "hw"},
    {"show": "sw"},
    {"poll": {"interface": "Ethernet1", "class": "copp-system-bgp"}},
    {"clear": {}},
    {"show": "sw"},
    {"verify": {}}
  ]
}
)json";
   return text;
}

Scenario demoScenario() {
   return scenarioFromText(demoScenarioText(), demoScenarioName);
}

}  // namespace NimbalHost
