// The host's CMPI encapsulated objects: the data behind each handle.
// Their function tables live in the matching .cpp files.
#pragma once

#include "IndicationQuery.h"
#include "ObjectRuntime.h"
#include "Value.h"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace cimhost {
class Worker;
}

namespace cimhost::rt {

class StringObj : public Object {
public:
    static constexpr Kind kKind = Kind::String;
    StringObj(const Flavor &flavor, std::string text);
    // A string whose characters are NULL (hdl NULL too), as a stock CIMOM
    // hands out for the principal when authentication is off.
    StringObj(const Flavor &flavor, std::nullptr_t);
    const char *chars() const { return null_ ? nullptr : text_.c_str(); }
    const std::string &text() const { return text_; }
    bool isNull() const { return null_; }

private:
    std::string text_;
    bool null_ = false;
};

class ArrayObj : public Object {
public:
    static constexpr Kind kKind = Kind::Array;
    ArrayObj(const Flavor &flavor, CMPIType elementType, Value::Array elements);
    CMPIType elementType() const { return elementType_; }
    Value::Array &elements() { return elements_; }
    const Value::Array &elements() const { return elements_; }
    Value toValue() const { return Value::array(elementType_, elements_); }

private:
    CMPIType elementType_;
    Value::Array elements_;
};

class InstanceObj : public Object {
public:
    static constexpr Kind kKind = Kind::Instance;
    InstanceObj(const Flavor &flavor, InstanceV data, std::optional<std::vector<std::string>> filter = {});
    // Shares data already in its returned form (a snapshot); a change copies it first.
    InstanceObj(const Flavor &flavor, std::shared_ptr<const InstanceV> snapshot,
                std::optional<std::vector<std::string>> filter = {});
    const InstanceV &data() const { return *data_; }
    // The data to change: this object's own copy from now on.
    InstanceV &mutableData();
    // Property names kept by CMSetPropertyFilter (lower case); none = all.
    std::optional<std::vector<std::string>> &filter() { return filter_; }
    const std::optional<std::vector<std::string>> &filter() const { return filter_; }
    bool admits(std::string_view name) const;
    // The instance's path: namespace, class, and the key properties' values.
    ObjectPathV currentPath() const;
    // The instance as it is returned: properties plus the current path. Kept
    // and shared until the instance changes.
    std::shared_ptr<const InstanceV> sharedSnapshot() const;
    InstanceV snapshot() const { return *sharedSnapshot(); }

private:
    std::shared_ptr<const InstanceV> data_;
    mutable bool owned_;  // data_ was made here and was never handed out
    mutable std::mutex snapshotMutex_;
    mutable std::shared_ptr<const InstanceV> snapshot_;
    std::optional<std::vector<std::string>> filter_;
};

class ObjectPathObj : public Object {
public:
    static constexpr Kind kKind = Kind::ObjectPath;
    ObjectPathObj(const Flavor &flavor, ObjectPathV data);
    ObjectPathV &data() { return data_; }
    const ObjectPathV &data() const { return data_; }

private:
    ObjectPathV data_;
};

class ArgsObj : public Object {
public:
    static constexpr Kind kKind = Kind::Args;
    ArgsObj(const Flavor &flavor, NamedValues args);
    NamedValues &args() { return args_; }
    const NamedValues &args() const { return args_; }

private:
    NamedValues args_;
};

class ContextObj : public Object {
public:
    static constexpr Kind kKind = Kind::Context;
    ContextObj(const Flavor &flavor, NamedValues entries, std::vector<std::string> nullTextEntries = {});
    NamedValues &entries() { return entries_; }
    const NamedValues &entries() const { return entries_; }
    // String entries that read back as a CMPIString whose characters are NULL.
    std::vector<std::string> &nullTextEntries() { return nullText_; }
    const std::vector<std::string> &nullTextEntries() const { return nullText_; }
    // For a context made by prepareAttachThread: the provider process and
    // provider whose code prepared it, which a thread attached with it joins.
    Worker *originWorker = nullptr;
    std::string_view originProvider;

private:
    NamedValues entries_;
    std::vector<std::string> nullText_;
};

class EnumerationObj : public Object {
public:
    static constexpr Kind kKind = Kind::Enumeration;
    // elementType: CMPI_instance or CMPI_ref.
    EnumerationObj(const Flavor &flavor, CMPIType elementType, std::vector<Value> items);
    CMPIType elementType() const { return elementType_; }
    const std::vector<Value> &items() const { return items_; }
    size_t &cursor() { return cursor_; }

private:
    CMPIType elementType_;
    std::vector<Value> items_;
    size_t cursor_ = 0;
};

class DateTimeObj : public Object {
public:
    static constexpr Kind kKind = Kind::DateTime;
    DateTimeObj(const Flavor &flavor, DateTimeV value);
    const DateTimeV &value() const { return value_; }

private:
    DateTimeV value_;
};

// A filter's query, as handed to indication providers.
class SelectExpObj : public Object {
public:
    static constexpr Kind kKind = Kind::SelectExp;
    // fromClasses: the FROM class and its subclasses (lower case), for evaluate.
    SelectExpObj(const Flavor &flavor, IndicationQuery query, std::vector<std::string> fromClasses);
    const IndicationQuery &query() const { return query_; }
    const std::vector<std::string> &fromClasses() const { return fromClasses_; }

private:
    IndicationQuery query_;
    std::vector<std::string> fromClasses_;
};

// What a provider call may return through its CMPIResult, and what it did.
struct ResultSink {
    enum class Accepts { Paths, Instances, Data };
    Accepts accepts = Accepts::Instances;
    std::vector<std::shared_ptr<const InstanceV>> instances;
    std::vector<ObjectPathV> paths;
    std::optional<Value> data;
};

class ResultObj : public Object {
public:
    static constexpr Kind kKind = Kind::Result;
    ResultObj(const Flavor &flavor, ResultSink *sink);
    ResultSink &sink() const { return *sink_; }

private:
    ResultSink *sink_;
};

// Key property names per class, filled from the class repositories of every
// host, so an instance can build its path whatever host made it.
void registerClassKeys(const std::string &className, std::vector<std::string> keyNames);
std::optional<std::vector<std::string>> classKeys(const std::string &className);

// ---- values crossing the boundary ------------------------------------------

// Reads a value handed in by a provider (setProperty, addKey, addArg,
// addEntry, setElementAt, returnData). Data is copied.
CMPIrc readValue(const CMPIValue *value, CMPIType type, Value &out);
// Builds the CMPIData a provider reads back; strings, paths, instances,
// arrays and datetimes inside are new borrowed objects of the request.
CMPIData toData(const Value &value, const Flavor &flavor, bool isKey = false);
// The answer to a lookup of a name or index that is not there.
CMPIData missingData();
// A new borrowed string (for names, namespaces and the like).
CMPIString *borrowedString(const Flavor &flavor, const std::string &text);
// A new tracked string (a result the provider owns until the request ends).
CMPIString *trackedString(const Flavor &flavor, const std::string &text);
// A chars array becomes a string array, as clients see it (in place).
void toClientForm(Value &value);

}  // namespace cimhost::rt
