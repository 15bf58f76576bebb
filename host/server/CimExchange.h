// One CIM operation request from its head and body to the reply: Basic
// authentication, the CIM headers, the XML, and the operation on the host.
// Runs on a worker thread; the network side has already checked the head.
#pragma once

#include "CimService.h"
#include "HttpRules.h"
#include "Users.h"

#include <optional>
#include <string>
#include <string_view>

namespace cimserver {

// What the log line and the server's counters say about a request beyond
// its HTTP status.
struct RequestNotes {
    std::string user;
    std::string operation;  // as the client named it
    std::string className;
    std::string cimStatus;
    std::string_view operationLabel;  // the server's name for it; empty: no operation ran
    int cimCode = 0;
    bool providerError = false;
};

struct CimContext {
    const CimService &service;
    const Users *users;  // null: anybody, with a principal whose text is NULL
    DecodeLimits limits;
};

// A 401 with WWW-Authenticate unless the request carries the Basic
// credentials of a user (notes.user is set to the name it gives).
std::optional<Reply> refuseUnauthenticated(const Users &users, const RequestHead &head, RequestNotes &notes);

Reply serveCim(const CimContext &context, const RequestHead &head, const std::string &body, RequestNotes &notes);

}  // namespace cimserver
