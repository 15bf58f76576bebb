// One CIM operation request from its head and body to the reply: Basic
// authentication, the CIM headers, the XML, and the operation on the host.
// Runs on a worker thread; the network side has already checked the head.
#pragma once

#include "CimService.h"
#include "HttpRules.h"
#include "Users.h"

#include <string>

namespace cimserver {

// What the log line says about a request beyond its HTTP status.
struct RequestNotes {
    std::string user;
    std::string operation;
    std::string className;
    std::string cimStatus;
};

struct CimContext {
    const CimService &service;
    const Users *users;  // null: anybody, with a principal whose text is NULL
    DecodeLimits limits;
};

Reply serveCim(const CimContext &context, const RequestHead &head, const std::string &body, RequestNotes &notes);

}  // namespace cimserver
