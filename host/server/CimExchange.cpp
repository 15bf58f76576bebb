#include "CimExchange.h"

#include "Host.h"

#include <optional>

namespace cimserver {

using cimhost::iequals;

Reply serveCim(const CimContext &context, const RequestHead &head, const std::string &body, RequestNotes &notes) {
    std::string principal;
    if (context.users != nullptr) {
        const std::string *authorization = head.find("Authorization");
        auto creds = authorization != nullptr ? basicCredentials(*authorization) : std::nullopt;
        if (creds) notes.user = creds->first;
        if (!creds || !context.users->verify(creds->first, creds->second)) {
            Reply r = refusal(401, nullptr);
            r.headers.emplace_back("WWW-Authenticate", "Basic realm=\"tovra-cimd\"");
            return r;
        }
        principal = creds->first;
    }
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
    Reply r;
    r.headers.emplace_back("CIMOperation", "MethodResponse");
    r.headers.emplace_back("Content-Type", "application/xml; charset=\"utf-8\"");
    r.body = std::move(outcome.body);
    return r;
}

}  // namespace cimserver
