// snoopd6-agentx: makes the daemon's MIB module readable and writable by SNMP. It is a sub-agent: snmpd is the master, spoken
// to over AgentX, and the daemon is asked over its own socket. Both may come and go; it registers again by itself.

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <unistd.h>

#include "agentx/objects.h"
#include "agentx/sets.h"

namespace {

constexpr const char *NAME = "snoopd6-agentx";
constexpr const char *MODULE = "tqzL2Dhcp6Snooping";
constexpr int PING_SECONDS = 5;           // how soon a lost master is noticed
constexpr unsigned int STOP_SECONDS = 3;  // that the leave from the master may take
constexpr unsigned int RETRY_SECONDS = 1; // between looks for a daemon that has not answered yet

volatile sig_atomic_t stopping;
std::array<oid, LINUX_MIB_OID_MAX> root;
size_t rootLength; // 0 until the daemon has told it

// ---- Gets -----------------------------------------------------------------------------------------------------------

void putAnswer(netsnmp_variable_list *variable, const LinuxMibMsg &message) {
    if (message.type == LINUX_MIB_INTEGER) {
        snmp_set_var_typed_integer(variable, ASN_INTEGER, static_cast<int32_t>(message.integer));
    } else {
        snmp_set_var_typed_value(variable, ASN_OCTET_STR, message.octets, message.length);
    }
}

// A value that is not there is no failure of the request; the others return an SNMP error.
int get(netsnmp_agent_request_info *info, netsnmp_request_info *request) {
    LinuxMibMsg message{};
    message.operation = LINUX_MIB_GET;
    switch (setsPutOid(request->requestvb, &message) ? objectsAsk(&message) : LINUX_MIB_NO_SUCH_INSTANCE) {
    case 0: putAnswer(request->requestvb, message); return SNMP_ERR_NOERROR;
    case LINUX_MIB_NO_SUCH_OBJECT: netsnmp_set_request_error(info, request, SNMP_NOSUCHOBJECT); return SNMP_ERR_NOERROR;
    case LINUX_MIB_NO_SUCH_INSTANCE:
    case -1: netsnmp_set_request_error(info, request, SNMP_NOSUCHINSTANCE); return SNMP_ERR_NOERROR; // no such row
    default: return SNMP_ERR_GENERR;
    }
}

// Without a next instance the request is left as it is, and the master goes on behind the module.
int getNext(netsnmp_request_info *request) {
    LinuxMibMsg message{};
    message.operation = LINUX_MIB_GETNEXT;
    const int32_t answer = setsPutOid(request->requestvb, &message) ? objectsAsk(&message) : LINUX_MIB_NO_NEXT_INSTANCE;
    if (answer == LINUX_MIB_NO_NEXT_INSTANCE || answer == LINUX_MIB_NO_SUCH_OBJECT) {
        return SNMP_ERR_NOERROR;
    }
    if (answer != 0) {
        return SNMP_ERR_GENERR;
    }
    std::array<oid, LINUX_MIB_OID_MAX> name;
    std::copy_n(message.oid, message.oidLength, name.begin());
    snmp_set_var_objid(request->requestvb, name.data(), message.oidLength);
    putAnswer(request->requestvb, message);
    return SNMP_ERR_NOERROR;
}

// ---- The module -----------------------------------------------------------------------------------------------------

int set(int mode, netsnmp_request_info *request) {
    switch (mode) {
    case MODE_SET_RESERVE1: return setsTest(request);
    case MODE_SET_RESERVE2: return setsKeep(request, rootLength);
    case MODE_SET_ACTION: return setsCommit(request);
    case MODE_SET_UNDO: return setsUndo(request);
    default: return SNMP_ERR_NOERROR;
    }
}

int process(netsnmp_agent_request_info *info, netsnmp_request_info *request) {
    switch (info->mode) {
    case MODE_GET: return get(info, request);
    case MODE_GETNEXT: return getNext(request);
    default: return set(info->mode, request);
    }
}

// After the first variable that fails nothing more is tested or committed, and a daemon that does not answer is not asked
// again. Setting back goes through all of them.
int onRequest(netsnmp_mib_handler *, netsnmp_handler_registration *, netsnmp_agent_request_info *info,
              netsnmp_request_info *requests) {
    for (netsnmp_request_info *request = requests; request != nullptr; request = request->next) {
        if (request->processed != 0) {
            continue;
        }
        const int error = process(info, request);
        if (error != SNMP_ERR_NOERROR) {
            netsnmp_set_request_error(info, request, error);
            if (info->mode != MODE_SET_UNDO) {
                break;
            }
        }
    }
    return SNMP_ERR_NOERROR;
}

bool askRoot() {
    LinuxMibMsg message{};
    message.operation = LINUX_MIB_ROOT;
    if (objectsAsk(&message) != 0 || message.oidLength == 0) {
        return false;
    }
    std::copy_n(message.oid, message.oidLength, root.begin());
    rootLength = message.oidLength;
    return true;
}

void registerModule() {
    netsnmp_handler_registration *registration =
        netsnmp_create_handler_registration(MODULE, onRequest, root.data(), rootLength, HANDLER_CAN_RWRITE);
    if (registration == nullptr || netsnmp_register_handler(registration) != MIB_REGISTERED_OK) {
        fprintf(stderr, "%s: cannot register the module\n", NAME);
        exit(EXIT_FAILURE);
    }
}

void lookForDaemon(unsigned int alarm, void *) {
    if (askRoot()) {
        snmp_alarm_unregister(alarm);
        registerModule();
    }
}

// ---- The process ----------------------------------------------------------------------------------------------------

void stop(int) {
    stopping = 1;
    alarm(STOP_SECONDS);
}

// The library takes leave of the master and waits for its answer. From one that stands still there is none, and there is nothing
// here to put away.
void giveUp(int) { _exit(EXIT_SUCCESS); }

// A sub-agent without files of its own: no configuration, no stored state, no MIB texts.
void setUp(const char *master) {
    setenv("MIBS", "", 1);
    snmp_enable_stderrlog();
    netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
    if (master != nullptr) {
        netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, master);
    }
    init_agent(NAME);
    netsnmp_ds_set_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_AGENTX_PING_INTERVAL,
                       PING_SECONDS); // init_agent has its own
    init_snmp(NAME);
}

int usage(FILE *out, int status) {
    fprintf(out,
            "usage: %s [-x ADDRESS]\n\n"
            "Makes the MIB module of a running snoopd6 known to snmpd, over AgentX. Stays in the foreground.\n\n"
            "  -x, --master ADDRESS  where snmpd listens for sub-agents (default: as Net-SNMP has it, /var/agentx/master)\n"
            "  -h, --help            this text\n"
            "  -V, --version         the version\n\n"
            "Environment: SNOOPD6_RUN is the folder of the daemon's socket (default %s).\n",
            NAME, SNOOPD6_RUN_DEFAULT);
    return status;
}

constexpr option OPTIONS[] = {{"master", required_argument, nullptr, 'x'},
                              {"help", no_argument, nullptr, 'h'},
                              {"version", no_argument, nullptr, 'V'},
                              {nullptr, 0, nullptr, 0}};

} // namespace

int main(int argc, char **argv) {
    const char *master = nullptr;
    for (int choice = 0; (choice = getopt_long(argc, argv, "x:hV", OPTIONS, nullptr)) != -1;) {
        switch (choice) {
        case 'x': master = optarg; break;
        case 'h': return usage(stdout, EXIT_SUCCESS);
        case 'V': printf("%s %s\n", NAME, SNOOPD6_VERSION); return EXIT_SUCCESS;
        default: return usage(stderr, 2);
        }
    }
    if (optind != argc) {
        return usage(stderr, 2);
    }
    struct sigaction action = {};
    action.sa_handler = stop;
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    signal(SIGALRM, giveUp);
    signal(SIGPIPE, SIG_IGN); // the master may go in the middle of an answer
    objectsInit();
    setUp(master);
    if (askRoot()) {
        registerModule();
    } else {
        snmp_alarm_register(RETRY_SECONDS, SA_REPEAT, lookForDaemon, nullptr);
    }
    while (stopping == 0) {
        agent_check_and_process(1);
    }
    snmp_shutdown(NAME);
    shutdown_agent();
    return EXIT_SUCCESS;
}
