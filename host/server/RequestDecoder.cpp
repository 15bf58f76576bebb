// Reads a CIM-XML request with libxml2. The parser never loads anything from
// outside the body: a document type declaration stops it (no entity of ours
// can be declared, so none can expand), the network is off, and counting
// hooks stop it once the element count or nesting depth passes the bounds.
// Attributes are counted in one pass over the text before the parser runs:
// its duplicate check compares an element's attributes pair by pair.
#include "CimRequest.h"

#include "Schema.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <memory>

namespace cimserver {

using cimhost::ObjectPathV;
using cimhost::Value;

namespace {

const NamedParam *named(const std::vector<NamedParam> &params, std::string_view name) {
    for (const NamedParam &p : params)
        if (cimhost::iequals(p.name, name)) return &p;
    return nullptr;
}

}  // namespace

const NamedParam *CimRequest::param(std::string_view name) const { return named(params, name); }
const NamedParam *ExportRequest::param(std::string_view name) const { return named(params, name); }

int httpStatusOf(RequestError::Kind kind) {
    switch (kind) {
        case RequestError::Kind::NotWellFormed:
        case RequestError::Kind::NotValid: return 400;
        default: return 501;
    }
}

const char *cimErrorHeaderOf(RequestError::Kind kind) {
    switch (kind) {
        case RequestError::Kind::NotWellFormed: return "request-not-well-formed";
        case RequestError::Kind::NotValid: return "request-not-valid";
        case RequestError::Kind::UnsupportedCimVersion: return "unsupported-cim-version";
        case RequestError::Kind::UnsupportedDtdVersion: return "unsupported-dtd-version";
        case RequestError::Kind::UnsupportedProtocolVersion: return "unsupported-protocol-version";
        case RequestError::Kind::MultipleRequests: return "multiple-requests-unsupported";
    }
    return "request-not-valid";
}

namespace {

// Thrown inside the tree walk; turned into a RequestError at the top.
struct Invalid {
    RequestError::Kind kind;
    std::string detail;
};

[[noreturn]] void invalid(std::string detail, RequestError::Kind kind = RequestError::Kind::NotValid) {
    throw Invalid{kind, std::move(detail)};
}

// ---- parsing with bounds ---------------------------------------------------

struct Guard {
    const DecodeLimits &limits;
    startElementNsSAX2Func startElement = nullptr;
    std::size_t elements = 0;
    std::size_t attributes = 0;
    std::string refused;  // why the hooks stopped the parser
};

void refuse(xmlParserCtxtPtr ctxt, const char *why) {
    auto *guard = static_cast<Guard *>(ctxt->_private);
    if (guard->refused.empty()) guard->refused = why;
    xmlStopParser(ctxt);
}

void boundedStart(void *ctx, const xmlChar *localname, const xmlChar *prefix, const xmlChar *uri, int nbNamespaces,
                  const xmlChar **namespaces, int nbAttributes, int nbDefaulted, const xmlChar **attributes) {
    auto *ctxt = static_cast<xmlParserCtxtPtr>(ctx);
    auto *guard = static_cast<Guard *>(ctxt->_private);
    if (++guard->elements > guard->limits.maxElements) return refuse(ctxt, "too many elements");
    if (ctxt->nameNr > guard->limits.maxDepth) return refuse(ctxt, "elements nested too deeply");
    const auto count = static_cast<std::size_t>(nbAttributes < 0 ? 0 : nbAttributes);
    guard->attributes += count;
    if (count > guard->limits.maxAttributesPerElement || guard->attributes > guard->limits.maxAttributes)
        return refuse(ctxt, "too many attributes");
    guard->startElement(ctx, localname, prefix, uri, nbNamespaces, namespaces, nbAttributes, nbDefaulted, attributes);
}

// The attributes of every start tag, counted as '=' outside quoted values;
// comments, CDATA sections, processing instructions and declarations are
// skipped whole. Returns why the body is refused, or empty.
std::string countAttributes(std::string_view body, const DecodeLimits &limits) {
    std::size_t total = 0;
    auto skipPast = [&](std::size_t from, std::string_view end) {
        std::size_t at = body.find(end, from);
        return at == std::string_view::npos ? body.size() : at + end.size();
    };
    for (std::size_t i = body.find('<'); i < body.size(); i = body.find('<', i)) {
        std::string_view rest = body.substr(i);
        if (rest.starts_with("<!--")) {
            i = skipPast(i + 4, "-->");
        } else if (rest.starts_with("<![CDATA[")) {
            i = skipPast(i + 9, "]]>");
        } else if (rest.starts_with("<?")) {
            i = skipPast(i + 2, "?>");
        } else if (rest.starts_with("<!") || rest.starts_with("</")) {
            i = skipPast(i + 2, ">");
        } else {
            std::size_t n = 0;
            char quote = 0;
            for (++i; i < body.size(); ++i) {
                char c = body[i];
                if (quote != 0) {
                    if (c == quote) quote = 0;
                } else if (c == '"' || c == '\'') {
                    quote = c;
                } else if (c == '=') {
                    ++n;
                } else if (c == '>') {
                    break;
                }
            }
            total += n;
            if (n > limits.maxAttributesPerElement || total > limits.maxAttributes) return "too many attributes";
        }
    }
    return {};
}

void noDocumentType(void *ctx, const xmlChar *, const xmlChar *, const xmlChar *) {
    refuse(static_cast<xmlParserCtxtPtr>(ctx), "document type declarations are not accepted");
}

struct CtxtFree {
    void operator()(xmlParserCtxtPtr c) const { xmlFreeParserCtxt(c); }
};
struct DocFree {
    void operator()(xmlDocPtr d) const { xmlFreeDoc(d); }
};
using DocPtr = std::unique_ptr<xmlDoc, DocFree>;

DocPtr parse(std::string_view body, const DecodeLimits &limits) {
    if (body.size() > limits.maxBytes) invalid("body larger than the limit");
    if (std::string why = countAttributes(body, limits); !why.empty()) invalid(why);
    std::unique_ptr<xmlParserCtxt, CtxtFree> ctxt(xmlNewParserCtxt());
    if (!ctxt) throw std::bad_alloc();
    Guard guard{limits, nullptr, 0, 0, {}};
    guard.startElement = ctxt->sax->startElementNs;
    ctxt->sax->startElementNs = boundedStart;
    ctxt->sax->internalSubset = noDocumentType;
    ctxt->sax->externalSubset = noDocumentType;
    ctxt->_private = &guard;
    // The body is UTF-8 whatever its declaration says; bytes that are not
    // UTF-8 make it not well-formed.
    const int options = XML_PARSE_NONET | XML_PARSE_NOCDATA | XML_PARSE_IGNORE_ENC | XML_PARSE_NOERROR |
                        XML_PARSE_NOWARNING;
    DocPtr doc(xmlCtxtReadMemory(ctxt.get(), body.data(), static_cast<int>(body.size()), "request", "UTF-8", options));
    if (!guard.refused.empty()) invalid(guard.refused);
    if (!doc || !ctxt->wellFormed) {
        const xmlError *err = xmlCtxtGetLastError(ctxt.get());
        std::string why = err != nullptr && err->message != nullptr ? err->message : "not well-formed";
        while (!why.empty() && (why.back() == '\n' || why.back() == ' ')) why.pop_back();
        invalid("line " + std::to_string(err != nullptr ? err->line : 0) + ": " + why,
                RequestError::Kind::NotWellFormed);
    }
    return doc;
}

// ---- the tree ---------------------------------------------------------------

class Element {
public:
    explicit Element(xmlNodePtr node, const DecodeLimits &limits) : node_(node), limits_(limits) {}

    std::string_view name() const { return reinterpret_cast<const char *>(node_->name); }
    bool is(std::string_view n) const { return name() == n; }

    std::optional<std::string> attr(const char *attrName) const {
        xmlChar *v = xmlGetNoNsProp(node_, reinterpret_cast<const xmlChar *>(attrName));
        if (v == nullptr) return std::nullopt;
        std::string s(reinterpret_cast<const char *>(v));
        xmlFree(v);
        return s;
    }
    // A CIM name attribute: present, non-empty and of bounded length.
    std::string nameAttr(const char *attrName = "NAME") const {
        auto v = attr(attrName);
        if (!v || v->empty()) invalid(std::string(name()) + " lacks " + attrName);
        if (v->size() > limits_.maxNameBytes) invalid(std::string(name()) + " " + attrName + " too long");
        return *v;
    }

    // Child elements; text between them must be blank.
    std::vector<Element> children() const {
        std::vector<Element> out;
        for (xmlNodePtr c = node_->children; c != nullptr; c = c->next) {
            if (c->type == XML_ELEMENT_NODE) {
                out.emplace_back(c, limits_);
            } else if (c->type == XML_TEXT_NODE && !isBlank(c->content)) {
                invalid(std::string(name()) + " holds text where elements belong");
            } else if (c->type == XML_ENTITY_REF_NODE) {
                invalid("undeclared entity reference");
            }
        }
        return out;
    }
    Element only(std::string_view childName) const {
        auto kids = children();
        if (kids.size() != 1 || !kids[0].is(childName))
            invalid(std::string(name()) + " must hold one " + std::string(childName));
        return kids[0];
    }
    // The character content; child elements are not allowed.
    std::string text() const {
        std::string out;
        for (xmlNodePtr c = node_->children; c != nullptr; c = c->next) {
            if (c->type == XML_TEXT_NODE || c->type == XML_CDATA_SECTION_NODE)
                out += reinterpret_cast<const char *>(c->content);
            else if (c->type == XML_ELEMENT_NODE || c->type == XML_ENTITY_REF_NODE)
                invalid(std::string(name()) + " must hold text only");
        }
        return out;
    }

private:
    static bool isBlank(const xmlChar *s) {
        for (; s != nullptr && *s != 0; ++s)
            if (*s != ' ' && *s != '\t' && *s != '\n' && *s != '\r') return false;
        return true;
    }
    xmlNodePtr node_;
    const DecodeLimits &limits_;
};

std::string localNamespace(const Element &e) {
    std::string ns;
    for (const Element &n : e.children()) {
        if (!n.is("NAMESPACE")) invalid("LOCALNAMESPACEPATH holds " + std::string(n.name()));
        if (!ns.empty()) ns += '/';
        ns += n.nameAttr();
    }
    if (ns.empty()) invalid("empty LOCALNAMESPACEPATH");
    return ns;
}

// NAMESPACEPATH: HOST then LOCALNAMESPACEPATH.
void namespacePath(const Element &e, ObjectPathV &path) {
    auto kids = e.children();
    if (kids.size() != 2 || !kids[0].is("HOST") || !kids[1].is("LOCALNAMESPACEPATH")) invalid("bad NAMESPACEPATH");
    path.host = kids[0].text();
    path.ns = localNamespace(kids[1]);
}

ObjectPathV valueReference(const Element &e);

// A key's value. Its text stays text unless TYPE names the CIM type: the
// host types keys after the class's declaration.
Value keyValue(const Element &e) {
    std::string text = e.text();
    if (auto type = e.attr("TYPE"); type && !type->empty()) {
        auto cimType = cimhost::cimTypeFromName(*type);
        if (!cimType) invalid("unknown KEYVALUE TYPE " + *type);
        auto v = Value::parse(cimhost::cmpiTypeOf(*cimType, false), text);
        if (!v) invalid("KEYVALUE '" + text + "' is not a " + *type);
        return *v;
    }
    return Value::string(std::move(text));
}

ObjectPathV instanceName(const Element &e) {
    ObjectPathV path;
    path.className = e.nameAttr("CLASSNAME");
    for (const Element &kb : e.children()) {
        if (!kb.is("KEYBINDING")) invalid("INSTANCENAME holds " + std::string(kb.name()));
        std::string keyName = kb.nameAttr();
        auto kids = kb.children();
        if (kids.size() != 1) invalid("KEYBINDING " + keyName + " must hold one value");
        if (kids[0].is("KEYVALUE"))
            path.keys.emplace_back(keyName, keyValue(kids[0]));
        else if (kids[0].is("VALUE.REFERENCE"))
            path.keys.emplace_back(keyName, Value::ref(valueReference(kids[0])));
        else
            invalid("KEYBINDING " + keyName + " holds " + std::string(kids[0].name()));
    }
    return path;
}

// LOCALCLASSPATH / LOCALINSTANCEPATH and their forms with a host.
ObjectPathV pathWithNamespace(const Element &e, bool local, bool instance) {
    auto kids = e.children();
    const char *last = instance ? "INSTANCENAME" : "CLASSNAME";
    const char *first = local ? "LOCALNAMESPACEPATH" : "NAMESPACEPATH";
    if (kids.size() != 2 || !kids[0].is(first) || !kids[1].is(last))
        invalid(std::string(e.name()) + " must hold " + first + " and " + last);
    ObjectPathV path;
    if (instance) {
        path = instanceName(kids[1]);
    } else {
        path.className = kids[1].nameAttr();
    }
    if (local)
        path.ns = localNamespace(kids[0]);
    else
        namespacePath(kids[0], path);
    return path;
}

ObjectPathV valueReference(const Element &e) {
    Element ref = [&] {
        auto kids = e.children();
        if (kids.size() != 1) invalid("VALUE.REFERENCE must hold one path");
        return kids[0];
    }();
    if (ref.is("CLASSPATH")) return pathWithNamespace(ref, false, false);
    if (ref.is("LOCALCLASSPATH")) return pathWithNamespace(ref, true, false);
    if (ref.is("INSTANCEPATH")) return pathWithNamespace(ref, false, true);
    if (ref.is("LOCALINSTANCEPATH")) return pathWithNamespace(ref, true, true);
    if (ref.is("INSTANCENAME")) return instanceName(ref);
    if (ref.is("CLASSNAME")) {
        ObjectPathV path;
        path.className = ref.nameAttr();
        return path;
    }
    invalid("VALUE.REFERENCE holds " + std::string(ref.name()));
}

// Embedded instances hold instances in turn; deeper than this is refused.
constexpr int kMaxEmbedding = 3;

cimhost::InstanceV instance(const Element &e, const DecodeLimits &limits, int embedding);

CMPIType propertyType(const Element &p) {
    auto type = p.attr("TYPE");
    if (!type || type->empty()) invalid(std::string(p.name()) + " lacks TYPE");
    auto cimType = cimhost::cimTypeFromName(*type);
    if (!cimType || *cimType == cimhost::CimType::Reference) invalid("unknown TYPE " + *type);
    return cimhost::cmpiTypeOf(*cimType, false);
}

bool embedded(const Element &p) {
    auto v = p.attr("EMBEDDEDOBJECT");
    if (!v) v = p.attr("EmbeddedObject");
    return v && (*v == "instance" || *v == "object");
}

// A VALUE's text as a value of the property's type; an embedded instance is
// XML text in turn.
Value scalar(const std::string &text, CMPIType type, bool isEmbedded, const std::string &what,
             const DecodeLimits &limits, int embedding) {
    if (isEmbedded && type == CMPI_string) {
        if (embedding >= kMaxEmbedding) invalid("instances embedded too deeply in " + what);
        DocPtr doc = parse(text, limits);
        xmlNodePtr root = xmlDocGetRootElement(doc.get());
        if (root == nullptr) invalid(what + " holds no embedded instance");
        Element inner(root, limits);
        if (!inner.is("INSTANCE")) invalid(what + " holds an embedded " + std::string(inner.name()) + ", not an INSTANCE");
        return Value::instance(instance(inner, limits, embedding + 1));
    }
    auto v = Value::parse(type, text);
    if (!v) invalid(what + ": '" + text.substr(0, 64) + "' is not a " + cimhost::typeName(type));
    return *v;
}

cimhost::InstanceV instance(const Element &e, const DecodeLimits &limits, int embedding) {
    cimhost::InstanceV inst;
    inst.path.className = e.nameAttr("CLASSNAME");
    for (const Element &p : e.children()) {
        if (p.is("QUALIFIER")) continue;
        const std::string name = p.nameAttr();
        const std::string what = "property " + name;
        if (cimhost::findNamed(inst.properties, name) != nullptr) invalid(what + " given twice");
        std::vector<Element> values;
        for (const Element &k : p.children())
            if (!k.is("QUALIFIER")) values.push_back(k);
        if (values.size() > 1) invalid(what + " holds more than one value");
        if (p.is("PROPERTY.REFERENCE")) {
            if (values.empty()) {
                inst.properties.emplace_back(name, Value::null(CMPI_ref));
            } else {
                if (!values[0].is("VALUE.REFERENCE")) invalid(what + " holds " + std::string(values[0].name()));
                inst.properties.emplace_back(name, Value::ref(valueReference(values[0])));
            }
            continue;
        }
        if (!p.is("PROPERTY") && !p.is("PROPERTY.ARRAY")) invalid("INSTANCE holds " + std::string(p.name()));
        const CMPIType type = propertyType(p);
        const bool isEmbedded = embedded(p);
        if (p.is("PROPERTY")) {
            if (values.empty()) {
                inst.properties.emplace_back(name, Value::null(type));
            } else {
                if (!values[0].is("VALUE")) invalid(what + " holds " + std::string(values[0].name()));
                inst.properties.emplace_back(name, scalar(values[0].text(), type, isEmbedded, what, limits, embedding));
            }
            continue;
        }
        if (values.empty()) {
            inst.properties.emplace_back(name, Value::null(static_cast<CMPIType>(type | CMPI_ARRAY)));
            continue;
        }
        if (!values[0].is("VALUE.ARRAY")) invalid(what + " holds " + std::string(values[0].name()));
        Value::Array items;
        for (const Element &item : values[0].children()) {
            if (item.is("VALUE"))
                items.push_back(scalar(item.text(), type, isEmbedded, what, limits, embedding));
            else if (item.is("VALUE.NULL"))
                items.push_back(Value::null(type));
            else
                invalid("VALUE.ARRAY holds " + std::string(item.name()));
        }
        const CMPIType element = isEmbedded && type == CMPI_string ? CMPIType(CMPI_instance) : type;
        inst.properties.emplace_back(name, Value::array(element, std::move(items)));
    }
    return inst;
}

RawValue rawValue(const Element &param, const DecodeLimits &limits) {
    RawValue v;
    auto kids = param.children();
    if (kids.empty()) return v;
    if (kids.size() > 1) invalid(std::string(param.name()) + " holds more than one value");
    const Element &e = kids[0];
    if (e.is("VALUE")) {
        v.kind = RawValue::Kind::Text;
        v.text = e.text();
    } else if (e.is("VALUE.ARRAY")) {
        v.kind = RawValue::Kind::Array;
        for (const Element &item : e.children()) {
            if (item.is("VALUE"))
                v.items.emplace_back(item.text());
            else if (item.is("VALUE.NULL"))
                v.items.emplace_back(std::nullopt);
            else
                invalid("VALUE.ARRAY holds " + std::string(item.name()));
        }
    } else if (e.is("CLASSNAME")) {
        v.kind = RawValue::Kind::ClassName;
        v.text = e.nameAttr();
    } else if (e.is("INSTANCENAME")) {
        v.kind = RawValue::Kind::InstanceName;
        v.path = instanceName(e);
    } else if (e.is("VALUE.REFERENCE")) {
        v.kind = RawValue::Kind::Reference;
        v.path = valueReference(e);
    } else if (e.is("INSTANCE")) {
        v.kind = RawValue::Kind::Instance;
        v.instance = instance(e, limits, 0);
    } else {
        v.kind = RawValue::Kind::Other;  // instances, classes, reference arrays: no operation here takes them
    }
    return v;
}

bool majorIs(const std::optional<std::string> &version, char major) {
    return version && !version->empty() && (*version)[0] == major && (version->size() == 1 || (*version)[1] == '.');
}

CimRequest call(const Element &e, const DecodeLimits &limits) {
    CimRequest r;
    r.method = e.nameAttr();
    auto kids = e.children();
    if (kids.empty()) invalid(std::string(e.name()) + " lacks its target");
    if (e.is("IMETHODCALL")) {
        if (!kids[0].is("LOCALNAMESPACEPATH")) invalid("IMETHODCALL must start with LOCALNAMESPACEPATH");
        r.nameSpace = localNamespace(kids[0]);
    } else {
        r.intrinsic = false;
        r.classTarget = kids[0].is("LOCALCLASSPATH");
        if (!r.classTarget && !kids[0].is("LOCALINSTANCEPATH"))
            invalid("METHODCALL must start with LOCALINSTANCEPATH or LOCALCLASSPATH");
        r.target = pathWithNamespace(kids[0], true, !r.classTarget);
        r.nameSpace = r.target.ns;
    }
    const char *paramElement = r.intrinsic ? "IPARAMVALUE" : "PARAMVALUE";
    for (std::size_t i = 1; i < kids.size(); ++i) {
        if (!kids[i].is(paramElement)) invalid(std::string(e.name()) + " holds " + std::string(kids[i].name()));
        NamedParam p;
        p.name = kids[i].nameAttr();
        if (!r.intrinsic) p.paramType = kids[i].attr("PARAMTYPE").value_or("");
        p.value = rawValue(kids[i], limits);
        if (r.param(p.name) != nullptr) invalid("parameter " + p.name + " given twice");
        r.params.push_back(std::move(p));
    }
    return r;
}

// The envelope: CIM and MESSAGE with their versions checked; returns the
// MESSAGE element's one child.
Element envelope(xmlDocPtr doc, const DecodeLimits &limits, std::string &id, std::string &protocolVersion) {
    xmlNodePtr rootNode = xmlDocGetRootElement(doc);
    if (rootNode == nullptr) invalid("no root element");
    Element root(rootNode, limits);
    if (!root.is("CIM")) invalid("the root element is not CIM");
    if (!majorIs(root.attr("CIMVERSION"), '2'))
        invalid("CIMVERSION not supported", RequestError::Kind::UnsupportedCimVersion);
    if (!majorIs(root.attr("DTDVERSION"), '2'))
        invalid("DTDVERSION not supported", RequestError::Kind::UnsupportedDtdVersion);
    Element msg = root.only("MESSAGE");
    auto messageId = msg.attr("ID");
    if (!messageId || messageId->size() > limits.maxNameBytes) invalid("MESSAGE lacks a usable ID");
    auto version = msg.attr("PROTOCOLVERSION");
    if (!majorIs(version, '1'))
        invalid("PROTOCOLVERSION not supported", RequestError::Kind::UnsupportedProtocolVersion);
    auto kids = msg.children();
    if (kids.size() != 1) invalid("MESSAGE must hold one request");
    if (kids[0].is("MULTIREQ") || kids[0].is("MULTIEXPREQ"))
        invalid(std::string(kids[0].name()), RequestError::Kind::MultipleRequests);
    id = *messageId;
    protocolVersion = *version;
    return kids[0];
}

CimRequest message(xmlDocPtr doc, const DecodeLimits &limits) {
    std::string id, version;
    Element request = envelope(doc, limits, id, version);
    if (!request.is("SIMPLEREQ")) invalid("MESSAGE holds " + std::string(request.name()));
    auto calls = request.children();
    if (calls.size() != 1 || !(calls[0].is("IMETHODCALL") || calls[0].is("METHODCALL")))
        invalid("SIMPLEREQ must hold one IMETHODCALL or METHODCALL");
    CimRequest r = call(calls[0], limits);
    r.messageId = id;
    return r;
}

ExportRequest exportMessage(xmlDocPtr doc, const DecodeLimits &limits) {
    ExportRequest r;
    Element request = envelope(doc, limits, r.messageId, r.protocolVersion);
    if (!request.is("SIMPLEEXPREQ")) invalid("MESSAGE holds " + std::string(request.name()));
    Element call = request.only("EXPMETHODCALL");
    r.method = call.nameAttr();
    for (const Element &p : call.children()) {
        if (!p.is("EXPPARAMVALUE")) invalid("EXPMETHODCALL holds " + std::string(p.name()));
        NamedParam param;
        param.name = p.nameAttr();
        param.value = rawValue(p, limits);
        if (named(r.params, param.name) != nullptr) invalid("parameter " + param.name + " given twice");
        r.params.push_back(std::move(param));
    }
    return r;
}

}  // namespace

DecodeResult decodeRequest(std::string_view body, const DecodeLimits &limits) {
    try {
        DocPtr doc = parse(body, limits);
        return message(doc.get(), limits);
    } catch (const Invalid &e) {
        return RequestError{e.kind, e.detail};
    }
}

ExportDecodeResult decodeExportRequest(std::string_view body, const DecodeLimits &limits) {
    try {
        DocPtr doc = parse(body, limits);
        return exportMessage(doc.get(), limits);
    } catch (const Invalid &e) {
        return RequestError{e.kind, e.detail};
    }
}

}  // namespace cimserver
