#include "MetricsExchange.h"

#include "Host.h"

namespace cimserver {

Reply serveMetrics(const MetricsContext &context, const RequestHead &head, RequestNotes &notes) {
    notes.operation = "metrics";  // for the log line
    if (context.users != nullptr)
        if (auto refused = refuseUnauthenticated(*context.users, head, notes)) return std::move(*refused);
    const ExpositionFormat format = negotiateFormat(head.find("Accept"));
    Exposition out(format);
    unsigned failed = 0;
    {
        // The enumerations run as the reader, as any client's would.
        std::optional<cimhost::Host::ThreadPrincipal> as;
        if (context.users != nullptr)
            as.emplace(notes.user);
        else
            as.emplace(std::string(), cimhost::HostOptions::PrincipalEntry::NullText);
        failed = context.adapter.write(out);
    }
    context.stats.providerErrors(failed);
    context.stats.write(out, context.openConnections());
    Reply r;
    r.headers.emplace_back("Content-Type", contentTypeOf(format));
    r.body = out.finish();
    return r;
}

}  // namespace cimserver
