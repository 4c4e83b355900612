// recorded_routers AGENT PORT: one process that speaks for many routers. It asks the agent for all
// that the user of snmp.conf may read, once, then gives these answers at this port of every address
// of loopback, and nowhere else. Prints a line when it has begun.
//
// SNMPv3 with the users of recorded_routers.conf in SNMPCONFPATH and under one engine ID for all;
// managers that ask for it anew each time don't mind. Uptimes go on, other values stay as they were
// recorded.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

namespace {

using Clock = std::chrono::steady_clock;

std::vector<netsnmp_variable_list*> recorded; ///< in their order
Clock::time_point begun;

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "recorded_routers: %s: %s\n", what, snmp_api_errstring(snmp_errno));
    std::exit(1);
}

// --- Recording

void record(const char* agent) {
    netsnmp_session settings;
    snmp_sess_init(&settings);
    std::string address = agent;
    settings.version = SNMP_VERSION_3;
    settings.peername = address.data();
    netsnmp_session* session = snmp_open(&settings);
    if (session == nullptr)
        fail(agent);
    std::vector<oid> last = {1, 3};
    for (;;) {
        netsnmp_pdu* request = snmp_pdu_create(SNMP_MSG_GETBULK);
        request->non_repeaters = 0;
        request->max_repetitions = 50;
        snmp_add_null_var(request, last.data(), last.size());
        netsnmp_pdu* answer = nullptr;
        if (snmp_synch_response(session, request, &answer) != STAT_SUCCESS ||
            answer->errstat != SNMP_ERR_NOERROR)
            fail("the agent does not answer");
        for (netsnmp_variable_list* each = answer->variables; each != nullptr;
             each = each->next_variable) {
            if (each->type == SNMP_ENDOFMIBVIEW) {
                snmp_close(session);
                return;
            }
            last.assign(each->name, each->name + each->name_length);
            recorded.push_back(static_cast<netsnmp_variable_list*>(std::calloc(1, sizeof *each)));
            snmp_clone_var(each, recorded.back());
        }
        snmp_free_pdu(answer);
    }
}

// --- Answering

using Place = std::vector<netsnmp_variable_list*>::const_iterator;

bool before(const netsnmp_variable_list* one, const netsnmp_variable_list* other) {
    return snmp_oid_compare(one->name, one->name_length, other->name, other->name_length) < 0;
}

void add(netsnmp_pdu* answer, const netsnmp_variable_list& asked, Place found, u_char otherwise) {
    if (found == recorded.end()) {
        snmp_pdu_add_variable(answer, asked.name, asked.name_length, otherwise, nullptr, 0);
        return;
    }
    const netsnmp_variable_list& each = **found;
    if (each.type != ASN_TIMETICKS) {
        snmp_pdu_add_variable(answer, each.name, each.name_length, each.type, each.val.string,
                              each.val_len);
        return;
    }
    const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begun);
    const long ticks = *each.val.integer + since.count() / 10;
    snmp_pdu_add_variable(answer, each.name, each.name_length, each.type, &ticks, sizeof ticks);
}

void fill(netsnmp_pdu* answer, const netsnmp_pdu& request) {
    const bool bulk = request.command == SNMP_MSG_GETBULK;
    long single = bulk ? request.non_repeaters : 0;
    for (netsnmp_variable_list* asked = request.variables; asked != nullptr;
         asked = asked->next_variable) {
        if (request.command == SNMP_MSG_GET) {
            const Place found = std::lower_bound(recorded.begin(), recorded.end(), asked, before);
            add(answer, *asked,
                found != recorded.end() && !before(asked, *found) ? found : recorded.end(),
                SNMP_NOSUCHOBJECT);
            continue;
        }
        Place found = std::upper_bound(recorded.begin(), recorded.end(), asked, before);
        for (long left = bulk && single-- <= 0 ? request.max_repetitions : 1; left > 0; --left) {
            add(answer, *asked, found, SNMP_ENDOFMIBVIEW);
            if (found == recorded.end())
                break;
            ++found;
        }
    }
}

int input(int what, netsnmp_session* session, int, netsnmp_pdu* request, void*) {
    if (what != NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE ||
        (request->command != SNMP_MSG_GET && request->command != SNMP_MSG_GETNEXT &&
         request->command != SNMP_MSG_GETBULK))
        return 1;
    netsnmp_pdu* answer = snmp_clone_pdu(request);
    snmp_free_varbind(answer->variables);
    answer->variables = nullptr;
    answer->command = SNMP_MSG_RESPONSE;
    answer->errstat = answer->errindex = 0;
    fill(answer, *request);
    if (snmp_send(session, answer) == 0)
        snmp_free_pdu(answer);
    return 1;
}

/// From the address that was asked, which the toolkit does not do on a socket that is bound to a
/// device.
int sendFromThere(netsnmp_transport* transport, const void* data, int size, void** opaque, int*) {
    const auto& ends = *static_cast<netsnmp_indexed_addr_pair*>(*opaque);
    sockaddr_in to = ends.remote_addr.sin;
    iovec part = {const_cast<void*>(data), static_cast<std::size_t>(size)};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo))] = {};
    msghdr message = {};
    message.msg_name = &to;
    message.msg_namelen = sizeof to;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = IPPROTO_IP;
    header->cmsg_type = IP_PKTINFO;
    header->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
    in_pktinfo from = {};
    from.ipi_spec_dst = ends.local_addr.sin.sin_addr;
    std::memcpy(CMSG_DATA(header), &from, sizeof from);
    return static_cast<int>(sendmsg(transport->sock, &message, MSG_DONTWAIT));
}

void answer(const std::string& port) {
    netsnmp_transport* transport =
        netsnmp_transport_open_server("recorded_routers", ("udp:0.0.0.0:" + port).c_str());
    if (transport == nullptr ||
        setsockopt(transport->sock, SOL_SOCKET, SO_BINDTODEVICE, "lo", 2) != 0)
        fail("no such port");
    transport->f_send = sendFromThere;
    netsnmp_session settings;
    snmp_sess_init(&settings);
    settings.version = SNMP_DEFAULT_VERSION;
    settings.callback = input;
    settings.isAuthoritative = SNMP_SESS_UNKNOWNAUTH;
    if (snmp_add(&settings, transport, nullptr, nullptr) == nullptr)
        fail("no session");
    std::puts("recorded");
    std::fflush(stdout);
    for (;;) {
        fd_set ready;
        FD_ZERO(&ready);
        timeval patience = {1, 0};
        int most = 0, block = 1;
        snmp_select_info(&most, &ready, &patience, &block);
        if (select(most, &ready, nullptr, nullptr, nullptr) > 0)
            snmp_read(&ready);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3)
        return std::fputs("usage: see the head of recorded_routers.cpp\n", stderr), 2;
    for (const char* const modules : {"MIBS", "MIBDIRS", "MIBFILES"})
        setenv(modules, "", 1); // none is needed
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_LOAD, 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DISABLE_PERSISTENT_SAVE, 1);
    register_config_handler("recorded_routers", "createUser", usm_parse_create_usmUser, nullptr,
                            nullptr);
    init_snmp("recorded_routers");
    record(argv[1]);
    begun = Clock::now();
    answer(argv[2]);
}
