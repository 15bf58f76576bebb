#include "Tree.h"

#include "Format.h"

#include <set>
#include <vector>

namespace cimhost::cli {
namespace {

constexpr const char *kNs = "tovra/cimv2";

// One way down from a node: the association followed and where to go next.
struct Step {
    const char *association;
    std::vector<Step> next;
};

const Step &root() {
    static const Step disk{"", {{"Tovra_MediaPresent", {}}, {"Tovra_DiskDriveSoftwareIdentity", {}}}};
    static const Step tree{
        "",
        {
            {"Tovra_LogicalIdentity",
             {{"Tovra_ControllerConformsToProfile", {}}, {"Tovra_RealizesPortController", {}}}},
            {"Tovra_SystemDeviceSoftwareIdentity", {}},
            {"Tovra_SystemDeviceBattery", {}},
            {"Tovra_SystemDeviceSASSATAPort", {}},
            {"Tovra_HostedStoragePool",
             {{"Tovra_AllocatedFromStoragePool", {{"Tovra_ElementSettingData", {}}}}}},
            {"Tovra_SystemPackaging",
             {{"Tovra_Container",
               {{"Tovra_PackageInConnector", {{"Tovra_RealizesDiskDrive", disk.next}}}}}}},
        }};
    return tree;
}

// The text that names an instance in the tree.
std::string label(const InstanceV &inst) {
    for (const char *name : {"DeviceID", "InstanceID", "Tag", "Name"}) {
        const Value *v = inst.property(name);
        if (v != nullptr && !v->isNull() && !v->isArray()) return v->toText();
    }
    return inst.path.toString();
}

struct Walker {
    Host &host;
    bool failed = false;
    // Objects already expanded: an object reached again (chassis that share
    // their tag share their slots) is named, not walked again.
    std::set<std::string> expanded;

    // The node of inst (reached through via) with everything below it.
    Json node(const InstanceV &inst, const std::string &via, const Step &step) {
        Json out;
        out["class"] = inst.path.className;
        if (!via.empty()) out["association"] = via;
        out["name"] = label(inst);
        out["path"] = inst.path.toString();
        if (!step.next.empty() && !expanded.insert(out["path"].get<std::string>()).second) {
            out["shownAbove"] = true;
            return out;
        }
        Json children = Json::array();
        for (const Step &s : step.next) {
            Reply r = host.associators(inst.path, AssocFilter{s.association, "", "", ""});
            if (!r.ok()) {
                failed = true;
                children.push_back({{"association", s.association}, {"error", errorText(r)}});
                continue;
            }
            for (const InstanceV &far : r.instances) children.push_back(node(far, s.association, s));
        }
        if (!children.empty()) out["children"] = std::move(children);
        return out;
    }
};

void printText(std::ostream &out, const Json &node, int depth) {
    const std::string indent(static_cast<size_t>(depth) * 2, ' ');
    if (node.contains("error")) {
        out << indent << "! " << node["association"].get<std::string>() << ": " << node["error"].get<std::string>()
            << '\n';
        return;
    }
    out << indent << node["class"].get<std::string>() << "  " << node["name"].get<std::string>();
    if (node.contains("association")) out << "  (" << node["association"].get<std::string>() << ")";
    if (node.contains("shownAbove")) out << "  [shown above]";
    out << '\n';
    if (node.contains("children"))
        for (const Json &child : node["children"]) printText(out, child, depth + 1);
}

}  // namespace

int printTree(Host &host, std::ostream &out, bool json) {
    Walker walker{host, false, {}};
    Json systems = Json::array();
    Reply top = host.enumerateInstances(kNs, "Tovra_RAIDControllerSystem");
    if (!top.ok()) {
        out << (json ? Json{{"error", errorText(top)}}.dump(2) : "! " + errorText(top)) << '\n';
        return 1;
    }
    for (const InstanceV &system : top.instances) systems.push_back(walker.node(system, "", root()));
    if (json) {
        out << systems.dump(2) << '\n';
    } else {
        for (const Json &system : systems) printText(out, system, 0);
    }
    return walker.failed ? 1 : 0;
}

}  // namespace cimhost::cli
