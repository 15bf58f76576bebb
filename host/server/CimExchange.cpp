#include "CimExchange.h"

#include "Host.h"

#include <optional>

namespace cimserver {

using cimhost::iequals;

std::optional<Reply> refuseUnauthenticated(const Users &users, const RequestHead &head, RequestNotes &notes) {
    const std::string *authorization = head.find("Authorization");
    auto creds = authorization != nullptr ? basicCredentials(*authorization) : std::nullopt;
    if (creds) notes.user = creds->first;
    if (creds && users.verify(creds->first, creds->second)) return std::nullopt;
    Reply r = refusal(401, nullptr);
    r.headers.emplace_back("WWW-Authenticate", "Basic realm=\"tovra-cimd\"");
    return r;
}

Reply serveCim(const CimContext &context, const RequestHead &head, const std::string &body, RequestNotes &notes) {
    if (context.users != nullptr)
        if (auto refused = refuseUnauthenticated(*context.users, head, notes)) return std::move(*refused);
    const std::string principal = notes.user;
    const std::string *operation = head.find("CIMOperation");
    if (operation == nullptr || !iequals(*operation, "MethodCall")) return refusal(400, "unsupported-operation");
    if (const std::string *v = head.find("CIMProtocolVersion"); v != nullptr && !versionMajorIs(*v, '1'))
        return refusal(501, "unsupported-protocol-version");
    if (head.find("CIMBatch") != nullptr) return refusal(501, "multiple-requests-unsupported");
    if (const std::string *type = head.find("Content-Type"); type != nullptr && !xmlInUtf8(*type))
        return refusal(400, "request-not-valid");

    DecodeResult decoded = decodeRequest(body, context.limits);
    if (auto *error = std::get_if<RequestError>(&decoded))
        return refusal(httpStatusOf(error->kind), cimErrorHeaderOf(error->kind));
    const CimRequest &cim = std::get<CimRequest>(decoded);
    notes.operation = cim.method;
    const std::string *method = head.find("CIMMethod");
    const std::string *object = head.find("CIMObject");
    if (method == nullptr || object == nullptr || !iequals(*method, cim.method) ||
        !objectHeaderMatches(*object, cim))
        return refusal(400, "header-mismatch");

    std::optional<cimhost::Host::ThreadPrincipal> as;
    if (context.users != nullptr)
        as.emplace(principal);
    else
        as.emplace(std::string(), cimhost::HostOptions::PrincipalEntry::NullText);
    unsigned level = 0;
    if (context.users != nullptr)
        for (const User &u : context.users->all())
            if (u.name == principal) level = u.level;
    Outcome outcome = context.service.run(cim, level);
    notes.className = outcome.className;
    notes.cimStatus = std::to_string(outcome.code);
    notes.operationLabel = outcome.operationLabel;
    notes.cimCode = outcome.code;
    notes.providerError = outcome.providerError;
    Reply r;
    r.headers.emplace_back("CIMOperation", "MethodResponse");
    r.headers.emplace_back("Content-Type", "application/xml; charset=\"utf-8\"");
    r.body = std::move(outcome.body);
    return r;
}

}  // namespace cimserver
