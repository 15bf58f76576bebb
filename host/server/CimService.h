// Runs decoded CIM-XML requests on the host and writes the response
// messages. Instance, association and method operations go to the host as
// they are; class operations are answered from the class catalog.
//
// Choices where a stock CIMOM leaves one:
//  - LocalOnly, IncludeQualifiers and IncludeClassOrigin of instance
//    operations are accepted and ignored (instances carry every property,
//    no qualifiers and no class origin).
//  - Instances list every property of their class, unset ones as NULL; a
//    PropertyList narrows them (keys stay); DeepInheritance FALSE keeps the
//    properties of the class that was asked for.
//  - GetInstance that the provider answers with no instance is NOT_FOUND.
//  - Association requests on a class (not an instance) are NOT_SUPPORTED.
//  - Intrinsic operations other than the eleven served answer NOT_SUPPORTED;
//    CreateInstance and DeleteInstance are served for the subscription
//    classes of the interop namespace only.
//  - References and ReferenceNames of a filter or destination answer the
//    subscriptions naming it.
//  - The subscription classes are read and changed only by callers with
//    read-write rights (level 5); others get CIM_ERR_ACCESS_DENIED.
#pragma once

#include "CimRequest.h"
#include "ClassCatalog.h"
#include "Host.h"
#include "Subscriptions.h"

#include <string>

namespace cimserver {

struct Outcome {
    std::string body;       // the whole response message
    std::string className;  // the class the request was about, for the log
    int code = 0;           // CIM status code of the answer
    std::string_view operationLabel;  // an intrinsic operation's name, "InvokeMethod" or "unsupported"
    bool providerError = false;       // a provider failed: CIM_ERR_FAILED or a status outside the standard ones
};

class CimService {
public:
    // subscriptions may be null: the interop classes then go to the host.
    CimService(cimhost::Host &host, const ClassCatalog &catalog, std::string hostName,
               Subscriptions *subscriptions = nullptr);

    // The permission level that may read and change subscriptions.
    static constexpr unsigned kReadWrite = 5;

    // Runs on the calling thread with whatever principal the caller set;
    // level is the caller's permission level.
    Outcome run(const CimRequest &request, unsigned level = 0) const;

    cimhost::Host &host() const { return host_; }

private:
    struct Call;
    using Handler = void (CimService::*)(Call &) const;
    struct Intrinsic {
        const char *name;
        Handler handler;
        std::vector<const char *> params;
    };
    static const std::vector<Intrinsic> &intrinsics();

    void getClass(Call &c) const;
    void enumerateClasses(Call &c) const;
    void enumerateClassNames(Call &c) const;
    void getInstance(Call &c) const;
    void enumerateInstances(Call &c) const;
    void enumerateInstanceNames(Call &c) const;
    void associators(Call &c) const;
    void associatorNames(Call &c) const;
    void references(Call &c) const;
    void referenceNames(Call &c) const;
    void invokeMethod(Call &c) const;
    void createInstance(Call &c) const;
    void deleteInstance(Call &c) const;
    // The subscription store when it keeps the class (after the caller's
    // rights are checked); null when the host serves the class.
    Subscriptions *kept(const Call &c, const std::string &cls) const;

    void writeInstance(std::string &out, const cimhost::InstanceV &inst, const std::string &shapeClass,
                       const std::optional<std::vector<std::string>> &propertyList) const;
    void writeObjects(Call &c, const cimhost::Reply &reply, bool names) const;

    cimhost::Host &host_;
    const ClassCatalog &catalog_;
    std::string hostName_;
    Subscriptions *subscriptions_;
};

// Default descriptions of the standard status codes 1 to 17 (empty for others).
std::string_view standardDescription(int code);

}  // namespace cimserver
