// The operations a host routes to provider MIs, for clients and for
// providers' up-calls alike. Each provider call gets its own broker-owned
// ctx, rslt, op (and args), released as soon as the call returns; what the
// provider makes meanwhile belongs to the request running on this thread.
#include "HostCore.h"

#include "Objects.h"

#include <algorithm>

namespace cimhost {

namespace {

// Bounds chains of up-calls (each is served on a thread of its own).
constexpr int kMaxNesting = 32;

bool nestedTooDeeply() { return threadRole().depth > kMaxNesting; }

using rt::Lifetime;
using rt::Runtime;

// One provider call: its passed-in objects, and the provider process it runs in.
class CallFrame {
public:
    CallFrame(const Binding &binding, const char *operation, const rt::Flavor &flavor, const CallContext &cc,
              const ObjectPathV &op, CMPIUint32 flags, rt::ResultSink::Accepts accepts, const PropertyList *props)
        : worker_(binding.worker, {binding.module->name(), operation, op.className}), flavor_(flavor) {
        sink.accepts = accepts;
        NamedValues entries = cc.entries;
        setNamed(entries, CMPIInvocationFlags, Value::u32(flags));
        setNamed(entries, CMPIInitNameSpace, Value::string(op.ns));
        ctx_ = own(Runtime::make<rt::ContextObj>(Lifetime::PassedIn, flavor, std::move(entries), cc.nullText))
                   ->as<CMPIContext>();
        rslt_ = own(Runtime::make<rt::ResultObj>(Lifetime::PassedIn, flavor, &sink))->as<CMPIResult>();
        op_ = own(Runtime::make<rt::ObjectPathObj>(Lifetime::PassedIn, flavor, op))->as<CMPIObjectPath>();
        if (props != nullptr) {
            names_ = *props;
            for (const std::string &n : names_) pointers_.push_back(n.c_str());
            pointers_.push_back(nullptr);
        }
    }
    ~CallFrame() {
        for (rt::Object *obj : owned_) Runtime::dispose(obj);
    }
    CallFrame(const CallFrame &) = delete;
    CallFrame &operator=(const CallFrame &) = delete;

    const CMPIContext *ctx() const { return ctx_; }
    const CMPIResult *rslt() const { return rslt_; }
    const CMPIObjectPath *op() const { return op_; }
    const char **properties() { return pointers_.empty() ? nullptr : pointers_.data(); }
    rt::ArgsObj *args(NamedValues values) {
        return own(Runtime::make<rt::ArgsObj>(Lifetime::PassedIn, flavor_, std::move(values)));
    }

    // What the provider answered, as a reply; the frame's results move into it.
    SharedReply finish(const CMPIStatus &st) {
        SharedReply r;
        r.rc = st.rc;
        if (st.msg != nullptr) {
            if (auto *msg = Runtime::resolve<rt::StringObj>(st.msg, nullptr); msg != nullptr && !msg->isNull())
                r.message = msg->text();
        }
        r.paths = std::move(sink.paths);
        r.instances = std::move(sink.instances);
        r.returnValue = std::move(sink.data);
        return r;
    }

    rt::ResultSink sink;

private:
    template <class T> T *own(T *obj) {
        owned_.push_back(obj);
        return obj;
    }

    InWorker worker_;
    rt::Flavor flavor_;
    std::vector<rt::Object *> owned_;
    CMPIContext *ctx_;
    CMPIResult *rslt_;
    CMPIObjectPath *op_;
    std::vector<std::string> names_;
    std::vector<const char *> pointers_;
};

const char *filterText(const std::string &s) { return s.empty() ? nullptr : s.c_str(); }

void append(SharedReply &all, SharedReply &&part) {
    all.paths.insert(all.paths.end(), std::make_move_iterator(part.paths.begin()),
                     std::make_move_iterator(part.paths.end()));
    all.instances.insert(all.instances.end(), std::make_move_iterator(part.instances.begin()),
                         std::make_move_iterator(part.instances.end()));
    if (!part.ok() && all.ok()) {
        all.rc = part.rc;
        all.message = std::move(part.message);
    }
}

// A client's property list keeps the listed properties and the keys; an
// instance that loses properties becomes a copy of its own.
void applyPropertyList(std::vector<std::shared_ptr<const InstanceV>> &instances, const PropertyList *props) {
    if (props == nullptr) return;
    for (auto &shared : instances) {
        const InstanceV &inst = *shared;
        auto keys = rt::classKeys(inst.path.className);
        auto dropped = [&](const auto &p) {
            auto listed = [&](const std::string &n) { return iequals(n, p.first); };
            bool isKey = keys ? std::any_of(keys->begin(), keys->end(), listed) : inst.path.key(p.first) != nullptr;
            return !isKey && std::none_of(props->begin(), props->end(), listed);
        };
        if (std::none_of(inst.properties.begin(), inst.properties.end(), dropped)) continue;
        auto narrowed = std::make_shared<InstanceV>(inst);
        std::erase_if(narrowed->properties, dropped);
        shared = std::move(narrowed);
    }
}

SharedReply unsupported(const std::string &what) { return SharedReply::error(CMPI_RC_ERR_NOT_SUPPORTED, what); }

}  // namespace

// ---- instances ---------------------------------------------------------------

SharedReply SharedReply::error(CMPIrc rc, std::string message) {
    SharedReply r;
    r.rc = rc;
    r.message = std::move(message);
    return r;
}

Reply SharedReply::toReply() && {
    Reply r;
    r.rc = rc;
    r.message = std::move(message);
    r.paths = std::move(paths);
    r.instances.reserve(instances.size());
    for (auto &inst : instances) r.instances.push_back(*inst);
    r.returnValue = std::move(returnValue);
    return r;
}

Reply HostCore::enumerateInstanceNames(const CallContext &cc, const ObjectPathV &op) {
    return enumerateShared(cc, op, nullptr, true).toReply();
}

Reply HostCore::enumerateInstances(const CallContext &cc, const ObjectPathV &op, const PropertyList *props) {
    return enumerateShared(cc, op, props, false).toReply();
}

SharedReply HostCore::enumerateShared(const CallContext &cc, const ObjectPathV &op, const PropertyList *props,
                                      bool names) {
    if (nestedTooDeeply()) return SharedReply::error(CMPI_RC_ERR_FAILED, "up-calls nested too deeply");
    std::string message;
    if (CMPIrc rc = checkRequest(op.ns, op.className, message); rc != CMPI_RC_OK)
        return SharedReply::error(rc, message);
    auto targets = instanceTargets(op.ns, op.className, Route::Instance);
    if (targets.empty()) return unsupported("no provider serves " + op.className + " in " + op.ns);

    SharedReply all;
    for (const Target &t : targets) {
        SharedReply part;
        auto *mi = static_cast<CMPIInstanceMI *>(usableMi(*t.binding, MiKind::Instance, part));
        if (mi != nullptr) {
            // An enumeration names a class: the path carries no keys.
            ObjectPathV path{op.ns, t.className, op.host, {}};
            CallFrame frame(*t.binding, names ? "EnumerateInstanceNames" : "EnumerateInstances", flavor_, cc, path,
                            names ? 0 : CMPI_FLAG_DeepInheritance,
                            names ? rt::ResultSink::Accepts::Paths : rt::ResultSink::Accepts::Instances, props);
            bool missing = names ? mi->ft->enumerateInstanceNames == nullptr : mi->ft->enumerateInstances == nullptr;
            if (missing) {
                part = unsupported(t.binding->module->name() + " has no such operation");
            } else {
                CMPIStatus st = names ? mi->ft->enumerateInstanceNames(mi, frame.ctx(), frame.rslt(), frame.op())
                                      : mi->ft->enumerateInstances(mi, frame.ctx(), frame.rslt(), frame.op(),
                                                                   frame.properties());
                part = frame.finish(st);
            }
        }
        bool failed = !part.ok();
        append(all, std::move(part));
        if (failed) break;
    }
    checkTypes(all.instances);
    applyPropertyList(all.instances, props);
    return all;
}

Reply HostCore::getInstance(const CallContext &cc, const ObjectPathV &op, const PropertyList *props) {
    return getInstanceShared(cc, op, props).toReply();
}

SharedReply HostCore::getInstanceShared(const CallContext &cc, const ObjectPathV &op, const PropertyList *props) {
    if (nestedTooDeeply()) return SharedReply::error(CMPI_RC_ERR_FAILED, "up-calls nested too deeply");
    std::string message;
    if (CMPIrc rc = checkRequest(op.ns, op.className, message); rc != CMPI_RC_OK)
        return SharedReply::error(rc, message);
    auto targets = instanceTargets(op.ns, op.className, Route::Single);
    if (targets.empty()) return unsupported("no provider serves " + op.className + " in " + op.ns);

    SharedReply last;
    for (const Target &t : targets) {
        SharedReply part;
        auto *mi = static_cast<CMPIInstanceMI *>(usableMi(*t.binding, MiKind::Instance, part));
        if (mi != nullptr) {
            if (mi->ft->getInstance == nullptr) return unsupported(t.binding->module->name() + " has no getInstance");
            CallFrame frame(*t.binding, "GetInstance", flavor_, cc, op, 0, rt::ResultSink::Accepts::Instances, props);
            part = frame.finish(mi->ft->getInstance(mi, frame.ctx(), frame.rslt(), frame.op(), frame.properties()));
        }
        // Several subclass providers: the first that knows the instance answers.
        bool answered = part.ok() ? !part.instances.empty() : part.rc != CMPI_RC_ERR_NOT_FOUND;
        last = std::move(part);
        if (answered) break;
    }
    checkTypes(last.instances);
    applyPropertyList(last.instances, props);
    return last;
}

// ---- associations ------------------------------------------------------------

template <class Call>
SharedReply HostCore::forEachAssociation(const char *operation, const CallContext &cc, const ObjectPathV &op,
                                         const std::string &assocClass, bool names, Call &&call) {
    if (nestedTooDeeply()) return SharedReply::error(CMPI_RC_ERR_FAILED, "up-calls nested too deeply");
    std::string message;
    if (CMPIrc rc = checkRequest(op.ns, op.className, message); rc != CMPI_RC_OK)
        return SharedReply::error(rc, message);
    if (!assocClass.empty() && schema_.find(assocClass) == nullptr)
        return SharedReply::error(CMPI_RC_ERR_INVALID_PARAMETER, "class " + assocClass + " does not exist");

    SharedReply all;
    for (Binding *b : associationTargets(op.ns, op.className, assocClass)) {
        SharedReply part;
        auto *mi = static_cast<CMPIAssociationMI *>(usableMi(*b, MiKind::Association, part));
        if (mi != nullptr) {
            CallFrame frame(*b, operation, flavor_, cc, op, 0,
                            names ? rt::ResultSink::Accepts::Paths : rt::ResultSink::Accepts::Instances, nullptr);
            part = call(mi, frame);
        }
        bool failed = !part.ok();
        append(all, std::move(part));
        if (failed) break;
    }
    checkTypes(all.instances);
    return all;
}

Reply HostCore::associators(const CallContext &cc, const ObjectPathV &op, const AssocFilter &f,
                            const PropertyList *props) {
    return associatorsShared(cc, op, f, props, false).toReply();
}

Reply HostCore::associatorNames(const CallContext &cc, const ObjectPathV &op, const AssocFilter &f) {
    return associatorsShared(cc, op, f, nullptr, true).toReply();
}

SharedReply HostCore::associatorsShared(const CallContext &cc, const ObjectPathV &op, const AssocFilter &f,
                                        const PropertyList *props, bool names) {
    std::vector<const char *> p;
    if (props != nullptr) {
        for (const std::string &n : *props) p.push_back(n.c_str());
        p.push_back(nullptr);
    }
    SharedReply r = forEachAssociation(names ? "AssociatorNames" : "Associators", cc, op, f.assocClass, names, [&](CMPIAssociationMI *mi, CallFrame &frame) {
        if (names) {
            if (mi->ft->associatorNames == nullptr) return unsupported("no associatorNames operation");
            return frame.finish(mi->ft->associatorNames(mi, frame.ctx(), frame.rslt(), frame.op(),
                                                        filterText(f.assocClass), filterText(f.resultClass),
                                                        filterText(f.role), filterText(f.resultRole)));
        }
        if (mi->ft->associators == nullptr) return unsupported("no associators operation");
        return frame.finish(mi->ft->associators(mi, frame.ctx(), frame.rslt(), frame.op(), filterText(f.assocClass),
                                                filterText(f.resultClass), filterText(f.role),
                                                filterText(f.resultRole), props != nullptr ? p.data() : nullptr));
    });
    applyPropertyList(r.instances, props);
    return r;
}

Reply HostCore::references(const CallContext &cc, const ObjectPathV &op, const std::string &resultClass,
                           const std::string &role, const PropertyList *props) {
    return referencesShared(cc, op, resultClass, role, props, false).toReply();
}

Reply HostCore::referenceNames(const CallContext &cc, const ObjectPathV &op, const std::string &resultClass,
                               const std::string &role) {
    return referencesShared(cc, op, resultClass, role, nullptr, true).toReply();
}

SharedReply HostCore::referencesShared(const CallContext &cc, const ObjectPathV &op, const std::string &resultClass,
                                       const std::string &role, const PropertyList *props, bool names) {
    std::vector<const char *> p;
    if (props != nullptr) {
        for (const std::string &n : *props) p.push_back(n.c_str());
        p.push_back(nullptr);
    }
    SharedReply r = forEachAssociation(names ? "ReferenceNames" : "References", cc, op, resultClass, names, [&](CMPIAssociationMI *mi, CallFrame &frame) {
        if (names) {
            if (mi->ft->referenceNames == nullptr) return unsupported("no referenceNames operation");
            return frame.finish(mi->ft->referenceNames(mi, frame.ctx(), frame.rslt(), frame.op(),
                                                       filterText(resultClass), filterText(role)));
        }
        if (mi->ft->references == nullptr) return unsupported("no references operation");
        return frame.finish(mi->ft->references(mi, frame.ctx(), frame.rslt(), frame.op(), filterText(resultClass),
                                               filterText(role), props != nullptr ? p.data() : nullptr));
    });
    applyPropertyList(r.instances, props);
    return r;
}

// ---- methods -----------------------------------------------------------------

Reply HostCore::invokeMethod(const CallContext &cc, const ObjectPathV &op, const std::string &method,
                             const NamedValues &in) {
    if (nestedTooDeeply()) return Reply::error(CMPI_RC_ERR_FAILED, "up-calls nested too deeply");
    std::string message;
    if (CMPIrc rc = checkRequest(op.ns, op.className, message); rc != CMPI_RC_OK) return Reply::error(rc, message);
    const MethodDecl *decl = schema_.method(op.className, method);
    if (decl == nullptr)
        return Reply::error(CMPI_RC_ERR_METHOD_NOT_FOUND, "class " + op.className + " declares no method " + method);
    Binding *binding = methodTarget(op.ns, op.className);
    if (binding == nullptr)
        return Reply::error(CMPI_RC_ERR_NOT_SUPPORTED, "no method provider serves " + op.className + " in " + op.ns);

    // Arguments take the declared parameter types.
    NamedValues typed;
    for (const auto &[name, value] : in) {
        auto param = std::find_if(decl->params.begin(), decl->params.end(),
                                  [&name = name](const ParameterDecl &p) { return iequals(p.name, name); });
        if (param == decl->params.end() || !param->in)
            return Reply::error(CMPI_RC_ERR_INVALID_PARAMETER, method + " has no input parameter " + name);
        auto converted = value.convertTo(cmpiTypeOf(param->type, param->isArray));
        if (!converted)
            return Reply::error(CMPI_RC_ERR_INVALID_PARAMETER,
                                "parameter " + param->name + " wants " + typeName(cmpiTypeOf(param->type, param->isArray)) +
                                    ", not " + value.toText());
        setNamed(typed, param->name, std::move(*converted));
    }

    SharedReply failure;
    auto *mi = static_cast<CMPIMethodMI *>(usableMi(*binding, MiKind::Method, failure));
    if (mi == nullptr) return std::move(failure).toReply();
    if (mi->ft->invokeMethod == nullptr)
        return Reply::error(CMPI_RC_ERR_NOT_SUPPORTED, binding->module->name() + " has no invokeMethod");
    CallFrame frame(*binding, "InvokeMethod", flavor_, cc, op, 0, rt::ResultSink::Accepts::Data, nullptr);
    rt::ArgsObj *inArgs = frame.args(std::move(typed));
    rt::ArgsObj *outArgs = frame.args({});
    CMPIStatus st = mi->ft->invokeMethod(mi, frame.ctx(), frame.rslt(), frame.op(), method.c_str(),
                                         inArgs->as<CMPIArgs>(), outArgs->as<CMPIArgs>());
    Reply r = frame.finish(st).toReply();
    r.outArgs = outArgs->args();
    return r;
}

}  // namespace cimhost
