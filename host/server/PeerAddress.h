// The client address of a libmicrohttpd connection as text ("-" when the
// library does not know it), for log lines and what a listener prints.
#pragma once

#include <microhttpd.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <string>

namespace cimserver {

inline std::string peerAddress(MHD_Connection *c) {
    const MHD_ConnectionInfo *info = MHD_get_connection_info(c, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    char text[INET6_ADDRSTRLEN] = "-";
    if (info == nullptr || info->client_addr == nullptr) return text;
    const sockaddr *sa = info->client_addr;
    if (sa->sa_family == AF_INET)
        inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in *>(sa)->sin_addr, text, sizeof text);
    else if (sa->sa_family == AF_INET6)
        inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6 *>(sa)->sin6_addr, text, sizeof text);
    return text;
}

}  // namespace cimserver
