// Indication providers: the filters of subscriptions reach them as a stock
// CIMOM hands them over (authorizeFilter, activateFilter, enableIndications,
// and back), and what they deliver goes to the host's sink.
#include "HostCore.h"

#include <algorithm>

namespace cimhost {

namespace {

using rt::Lifetime;
using rt::Runtime;

// One call of an indication MI: its context and class path, and the provider
// process it runs in.
class IndicationCall {
public:
    IndicationCall(const Binding &binding, const char *operation, const rt::Flavor &flavor, const CallContext &cc,
                   const std::string &ns)
        : worker_(binding.worker, {binding.module->name(), operation, binding.className}) {
        NamedValues entries = cc.entries;
        setNamed(entries, CMPIInvocationFlags, Value::u32(0));
        setNamed(entries, CMPIInitNameSpace, Value::string(ns));
        ctx_ = Runtime::make<rt::ContextObj>(Lifetime::PassedIn, flavor, std::move(entries), cc.nullText);
        path_ = Runtime::make<rt::ObjectPathObj>(Lifetime::PassedIn, flavor, ObjectPathV{ns, binding.className, {}, {}});
    }
    ~IndicationCall() {
        Runtime::dispose(path_);
        Runtime::dispose(ctx_);
    }
    IndicationCall(const IndicationCall &) = delete;
    IndicationCall &operator=(const IndicationCall &) = delete;

    const CMPIContext *ctx() const { return ctx_->as<CMPIContext>(); }
    const CMPIObjectPath *classPath() const { return path_->as<CMPIObjectPath>(); }

private:
    InWorker worker_;
    rt::ContextObj *ctx_;
    rt::ObjectPathObj *path_;
};

Reply replyOf(const CMPIStatus &st, const std::string &provider, const char *operation) {
    Reply r;
    r.rc = st.rc;
    if (st.msg != nullptr) {
        if (auto *msg = Runtime::resolve<rt::StringObj>(st.msg, nullptr); msg != nullptr && !msg->isNull())
            r.message = msg->text();
    }
    if (!r.ok() && r.message.empty()) r.message = provider + " " + operation + " failed";
    return r;
}

std::string principalOf(const CallContext &cc) {
    const Value *p = findNamed(cc.entries, CMPIPrincipal);
    return p != nullptr && !p->isNull() && p->type() == CMPI_string ? p->asString() : std::string();
}

}  // namespace

rt::SelectExpObj *HostCore::makeSelectExp(const std::string &query, const std::string &language,
                                          rt::Lifetime lifetime, CMPIStatus *rc) {
    CMPIrc code = CMPI_RC_OK;
    std::string message;
    auto parsed = parseIndicationQuery(query, language, code, message);
    if (parsed && schema_.find(parsed->fromClass) == nullptr) {
        code = CMPI_RC_ERR_INVALID_QUERY;
        message = "class " + parsed->fromClass + " does not exist";
        parsed.reset();
    }
    if (!parsed) {
        if (rc != nullptr) *rc = CMPIStatus{code, rt::trackedString(flavor_, message)};
        return nullptr;
    }
    rt::setRc(rc, CMPI_RC_OK);
    std::vector<std::string> from = schema_.subclasses(parsed->fromClass);
    return Runtime::make<rt::SelectExpObj>(lifetime, flavor_, std::move(*parsed), std::move(from));
}

Reply HostCore::activateFilter(const CallContext &cc, const std::string &ns, const std::string &cls,
                               const std::string &query) {
    std::string message;
    if (CMPIrc rc = checkRequest(ns, cls, message); rc != CMPI_RC_OK) return Reply::error(rc, message);
    std::lock_guard lock(indicationMutex_);
    for (ActiveFilter &f : activeFilters_) {
        if (iequals(f.ns, ns) && iequals(f.cls, cls) && f.query == query) {
            ++f.subscriptions;
            return Reply{};
        }
    }
    CMPIStatus parsed{CMPI_RC_OK, nullptr};
    rt::SelectExpObj *se = makeSelectExp(query, "WQL", Lifetime::PassedIn, &parsed);
    if (se == nullptr) return replyOf(parsed, "", "");
    ActiveFilter filter{ns, cls, query, 1, se, {}};
    if (!schema_.isA(se->query().fromClass, cls) && !schema_.isA(cls, se->query().fromClass)) {
        Reply refused = Reply::error(CMPI_RC_ERR_INVALID_QUERY,
                                     "the query selects from " + se->query().fromClass + ", not from " + cls);
        Runtime::dispose(se);
        return refused;
    }

    std::vector<Binding *> targets;
    for (const auto &b : bindings_)
        if (b->serves(MiKind::Indication, ns) && schema_.isA(b->className, cls)) targets.push_back(b.get());
    if (targets.empty()) {
        Runtime::dispose(se);
        return Reply::error(CMPI_RC_ERR_NOT_SUPPORTED, "no indication provider serves " + cls + " in " + ns);
    }

    const std::string owner = principalOf(cc);
    const auto *filterExp = se->as<CMPISelectExp>();
    Reply result;
    for (Binding *b : targets) {
        SharedReply failure;
        auto *mi = static_cast<CMPIIndicationMI *>(usableMi(*b, MiKind::Indication, failure));
        if (mi == nullptr) {
            result = std::move(failure).toReply();
            break;
        }
        const std::string &name = b->module->name();
        IndicationState &state = indicationStates_[b->module.get()];
        if (mi->ft->authorizeFilter != nullptr) {
            IndicationCall call(*b, "AuthorizeFilter", flavor_, cc, ns);
            result = replyOf(mi->ft->authorizeFilter(mi, call.ctx(), filterExp, cls.c_str(), call.classPath(),
                                                     owner.c_str()),
                             name, "authorizeFilter");
            if (!result.ok()) break;
        }
        if (mi->ft->activateFilter == nullptr) {
            result = Reply::error(CMPI_RC_ERR_NOT_SUPPORTED, name + " has no activateFilter");
            break;
        }
        {
            IndicationCall call(*b, "ActivateFilter", flavor_, cc, ns);
            result = replyOf(mi->ft->activateFilter(mi, call.ctx(), filterExp, cls.c_str(), call.classPath(),
                                                    state.filters == 0 ? 1 : 0),
                             name, "activateFilter");
        }
        if (!result.ok()) break;
        ++state.filters;
        filter.providers.push_back(b);
        if (!state.enabled && mi->ft->enableIndications != nullptr) {
            IndicationCall call(*b, "EnableIndications", flavor_, cc, ns);
            result = replyOf(mi->ft->enableIndications(mi, call.ctx()), name, "enableIndications");
            if (!result.ok()) break;
            state.enabled = true;
        }
    }
    if (!result.ok()) {
        // What was activated for this filter is taken back.
        const Reply failed = result;
        deactivateIn(cc, filter, filter.providers);
        Runtime::dispose(se);
        return failed;
    }
    activeFilters_.push_back(std::move(filter));
    return result;
}

Reply HostCore::deactivateFilter(const CallContext &cc, const std::string &ns, const std::string &cls,
                                 const std::string &query) {
    std::lock_guard lock(indicationMutex_);
    auto it = std::find_if(activeFilters_.begin(), activeFilters_.end(), [&](const ActiveFilter &f) {
        return iequals(f.ns, ns) && iequals(f.cls, cls) && f.query == query;
    });
    if (it == activeFilters_.end())
        return Reply::error(CMPI_RC_ERR_NOT_FOUND, "no active filter \"" + query + "\" for " + cls + " in " + ns);
    if (--it->subscriptions > 0) return Reply{};
    ActiveFilter filter = std::move(*it);
    activeFilters_.erase(it);
    Reply r = deactivateIn(cc, filter, filter.providers);
    Runtime::dispose(filter.selectExp);
    return r;
}

// Each provider: disableIndications before its last filter goes, then
// deActivateFilter. The first failure is answered; the rest still run.
Reply HostCore::deactivateIn(const CallContext &cc, ActiveFilter &filter, const std::vector<Binding *> &providers) {
    Reply result;
    const std::string ns = filter.ns;
    for (Binding *b : providers) {
        SharedReply failure;
        auto *mi = static_cast<CMPIIndicationMI *>(usableMi(*b, MiKind::Indication, failure));
        if (mi == nullptr) continue;
        const std::string &name = b->module->name();
        IndicationState &state = indicationStates_[b->module.get()];
        const bool last = state.filters == 1;
        if (last && state.enabled && mi->ft->disableIndications != nullptr) {
            IndicationCall call(*b, "DisableIndications", flavor_, cc, ns);
            Reply r = replyOf(mi->ft->disableIndications(mi, call.ctx()), name, "disableIndications");
            if (result.ok()) result = r;
        }
        if (last) state.enabled = false;
        if (mi->ft->deActivateFilter != nullptr) {
            IndicationCall call(*b, "DeActivateFilter", flavor_, cc, ns);
            Reply r = replyOf(mi->ft->deActivateFilter(mi, call.ctx(), filter.selectExp->as<CMPISelectExp>(),
                                                       filter.cls.c_str(), call.classPath(), last ? 1 : 0),
                              name, "deActivateFilter");
            if (result.ok()) result = r;
        }
        if (state.filters > 0) --state.filters;
    }
    return result;
}

void HostCore::stopIndications() {
    std::lock_guard lock(indicationMutex_);
    CallContext cc;
    for (const auto &b : bindings_) {
        auto it = indicationStates_.find(b->module.get());
        if (it == indicationStates_.end() || !it->second.enabled) continue;
        it->second.enabled = false;
        SharedReply failure;
        auto *mi = static_cast<CMPIIndicationMI *>(usableMi(*b, MiKind::Indication, failure));
        if (mi == nullptr || mi->ft->disableIndications == nullptr) continue;
        const std::string ns = b->namespaces.empty() ? std::string() : b->namespaces.front();
        IndicationCall call(*b, "DisableIndications", flavor_, cc, ns);
        mi->ft->disableIndications(mi, call.ctx());
    }
}

void HostCore::deliverIndication(const std::string &ns, const InstanceV &indication) {
    if (options_.indicationSink) options_.indicationSink(ns, indication);
}

}  // namespace cimhost
