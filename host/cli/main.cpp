// tovra-cim: runs one CIM operation on the CMPI host and prints the answer.
// The MOF, the registration and the provider libraries are found beside the
// executable (installed, or in its build folder) unless given.
// Exit status: 0 success, 1 the operation failed, 2 a usage error or a host
// that could not start; `health` answers 0 to 3 as a monitoring check does.
#include "ClassRepository.h"
#include "Describe.h"
#include "Format.h"
#include "HealthReport.h"
#include "Host.h"
#include "Installation.h"
#include "Inventory.h"
#include "Listen.h"
#include "SimulatorLaunch.h"
#include "TypedArgs.h"
#include "Tree.h"

#include <CLI/CLI.hpp>

#include <ctime>
#include <filesystem>
#include <iostream>

using namespace cimhost;

namespace {

struct Request {
    std::string ns, cls, method;
    std::vector<std::string> keys, args, properties;
    bool hasProperties = false;
    AssocFilter filter;
};

// "name=value" items as string values; the host types them after the MOF.
NamedValues pairs(const std::vector<std::string> &items, const std::string &what) {
    NamedValues out;
    for (const std::string &item : items) {
        size_t eq = item.find('=');
        if (eq == std::string::npos || eq == 0) throw std::invalid_argument(what + " '" + item + "' is not name=value");
        out.emplace_back(item.substr(0, eq), Value::string(item.substr(eq + 1)));
    }
    return out;
}

// The MOF the host reads, for the declarations of method parameters.
ClassRepository declarations(const std::vector<std::string> &mofPaths) {
    ClassRepository repo;
    for (const std::string &path : mofPaths) {
        std::error_code ec;
        if (std::filesystem::is_directory(path, ec))
            repo.loadDirectory(path);
        else
            repo.loadFile(path);
    }
    return repo;
}

// Names a missing adapter device after an answer that could not open it.
void hintAtDevice(bool openFailed) {
    if (!openFailed) return;
    if (const std::string problem = cli::deviceProblem(); !problem.empty())
        std::cerr << "tovra-cim: " << problem << '\n';
}

int print(const Reply &reply, bool json) {
    if (json) {
        std::cout << cli::toJson(reply).dump(2) << '\n';
    } else if (reply.ok()) {
        std::cout << cli::toText(reply);
    } else {
        std::cerr << "tovra-cim: " << cli::errorText(reply) << '\n';
    }
    hintAtDevice(!reply.ok() && cli::deviceOpenFailed(reply));
    return reply.ok() ? 0 : 1;
}

// The status the method modules answer for a wrong argument count.
constexpr CMPIrc kWrongArgumentCount = static_cast<CMPIrc>(49);

// A method's answer: its return value and its status, whatever the status.
// A wrong argument count also names what the method takes, on stderr.
int printMethod(const Reply &reply, const MethodDecl *method, bool json) {
    if (json) {
        std::cout << cli::toJson(reply).dump(2) << '\n';
    } else {
        if (reply.returnValue) std::cout << cli::toText(reply);
        std::cout << cli::statusLine(reply) << '\n';
    }
    if (reply.rc == kWrongArgumentCount && method != nullptr)
        std::cerr << "tovra-cim: " << cli::expectedArguments(*method) << '\n';
    hintAtDevice(!reply.ok() && cli::deviceOpenFailed(reply));
    return reply.ok() ? 0 : 1;
}

struct HealthRequest {
    double timeout = 10;
    std::string since = "24h";
    std::string battery = "auto";
    cli::HealthLimits limits;
    bool verbose = false;
};

CLI::App *healthCommand(CLI::App &app, HealthRequest &h) {
    CLI::App *sub = app.add_subcommand(
        "health", "monitoring check: one line \"TOVRA <STATE> - <summary> | <performance data>\"; exit 0 OK, "
                  "1 WARNING, 2 CRITICAL, 3 UNKNOWN");
    const auto option = [sub](const char *name, auto &value, const char *help) {
        return sub->add_option(name, value, help)->capture_default_str();
    };
    cli::HealthLimits &l = h.limits;
    option("--timeout", h.timeout, "seconds to wait for the adapter before answering UNKNOWN")
        ->check(CLI::PositiveNumber);
    option("--since", h.since,
           "error events at or after this count: a duration back from now (90s, 30m, 24h, 7d, 2w) or a UTC time "
           "(2023-11-14 23:13:20)");
    option("--temp-warning", l.temperatureWarning, "degrees C above which a temperature warns");
    option("--temp-critical", l.temperatureCritical, "degrees C above which a temperature is critical");
    option("--voltage-warning", l.voltageWarning, "percent off the nominal voltage that warns");
    option("--voltage-critical", l.voltageCritical, "percent off the nominal voltage that is critical");
    option("--fan-minimum", l.fanMinimum, "RPM below which a fan is critical (stopped)");
    option("--battery-warning", l.batteryWarning, "charge percent below which the battery warns");
    option("--battery-critical", l.batteryCritical, "charge percent below which the battery is critical");
    option("--battery", h.battery, "a missing battery warns: auto (when a volume caches writes), required, optional")
        ->check(CLI::IsMember({"auto", "required", "optional"}));
    sub->add_flag("-v,--verbose", h.verbose, "list every component after the first line, one per line");
    return sub;
}

// The check reads only (enumerations need no rights) and runs on its own
// thread under the time limit.
int runHealth(const HostOptions &options, HealthRequest h, bool verbose, bool json) {
    h.limits.since = cli::sinceTime(h.since, std::time(nullptr));
    using B = cli::HealthLimits::Battery;
    h.limits.battery = h.battery == "required" ? B::Required : h.battery == "optional" ? B::Optional : B::Auto;
    return cli::runHealth(
        [&options, limits = h.limits] {
            Host host(options);
            const cli::Snapshot adapter = cli::gatherForHealth(host);
            const auto *failure = adapter.firstFailure();
            if (failure != nullptr && cli::deviceOpenFailed(failure->second))
                if (std::string problem = cli::deviceProblem(); !problem.empty())
                    return cli::unknownVerdict(std::move(problem));
            return cli::judge(adapter, limits);
        },
        h.timeout, verbose || h.verbose, json);
}

CLI::App *operation(CLI::App &app, const char *name, const char *help, Request &r, bool keys) {
    CLI::App *sub = app.add_subcommand(name, help);
    sub->add_option("namespace", r.ns, "CIM namespace")->required();
    sub->add_option("class", r.cls, "CIM class")->required();
    if (keys) sub->add_option("keys", r.keys, "key=value of the object");
    return sub;
}

void propertyOption(CLI::App *sub, Request &r) {
    sub->add_option("--properties", r.properties, "only these properties (comma-separated)")->delimiter(',');
}

}  // namespace

int main(int argc, char **argv) {
    CLI::App app{"Runs one CIM operation on the CMPI host and prints the answer."};
    app.require_subcommand(1);
    app.fallthrough();

    HostOptions options;
    std::vector<std::string> permissions;
    bool json = false;
    app.add_option("--mof", options.mofPaths, "MOF file or directory (repeatable)")->take_all()->expected(1);
    app.add_option("--registration", options.registrationFile, "provider registration file");
    app.add_option("--provider-dir", options.providerDirs, "directory of provider libraries (repeatable)")
        ->take_all()
        ->expected(1);
    app.add_option("--principal", options.principal, "user named in the requests' context");
    app.add_option("--permission", permissions, "user=level answered by the authorization service (repeatable)")
        ->take_all()
        ->expected(1);
    app.add_option("--layout", options.layout,
                   "provider processes: one per provider library (a stock CIMOM's default) or one per provider")
        ->transform(CLI::CheckedTransformer(HostOptions::kLayoutNames));
    app.add_flag("--json", json, "print JSON");
    app.add_flag("--verbose", options.echoBrokerLog, "print the host's log (provider load failures, type warnings)");
    std::string scenario;
    CLI::Option *simulate =
        app.add_option("--simulate", scenario,
                       "run against the simulated adapter (scenario: default, full, a name or a .json path); "
                       "the principal may then change the adapter")
            ->expected(0, 1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);

    cli::ListenOptions listenOptions;
    CLI::App *listen = app.add_subcommand(
        "listen", "a CIM-XML listener: prints each indication exported to it (--json: one JSON document per line)");
    listen->add_option("--port", listenOptions.port, "port to listen on; 0 picks a free one (printed on standard error)")
        ->required()->check(CLI::Range(0, 65535));
    listen->add_option("--listen", listenOptions.address, "address to listen on")->capture_default_str();
    listen->add_option("--count", listenOptions.count, "stop after this many indications")->check(CLI::Range(1LL, 1LL << 62));
    listen->add_option("--max-body", listenOptions.maxBody, "largest request body in bytes")->capture_default_str()
        ->check(CLI::Range(1024, 1 << 30));
    listen->add_option("--request-timeout", listenOptions.requestTimeout, "seconds for a whole request to arrive")
        ->capture_default_str()->check(CLI::Range(0.05, 3600.0));
    listen->add_option("--idle-timeout", listenOptions.idleTimeout, "seconds a connection may stay silent")
        ->capture_default_str()->check(CLI::Range(1, 3600));
    listen->add_option("--max-connections", listenOptions.maxConnections, "open connections in total")
        ->capture_default_str()->check(CLI::Range(1, 10000));
    listen->add_option("--max-connections-per-address", listenOptions.maxConnectionsPerAddress,
                       "open connections from one address")->capture_default_str()->check(CLI::Range(1, 10000));

    Request r;
    CLI::App *classes = app.add_subcommand("classes", "the classes served: class, namespace, provider, kinds");
    CLI::App *inventory = app.add_subcommand(
        "inventory", "the adapter: controller, software, battery, ports, enclosures with sensors, slots and disks, "
        "extents, pools, volumes, default settings");
    CLI::App *tree = app.add_subcommand(
        "tree", "the adapter as a graph: the associations followed from the controller system down to the disks");
    HealthRequest healthRequest;
    CLI::App *health = healthCommand(app, healthRequest);
    CLI::App *ein = operation(app, "ein", "enumerate instance names", r, false);
    CLI::App *ei = operation(app, "ei", "enumerate instances", r, false);
    CLI::App *gi = operation(app, "gi", "get an instance", r, true);
    CLI::App *an = operation(app, "an", "associator names", r, true);
    CLI::App *a = operation(app, "a", "associators", r, true);
    CLI::App *rn = operation(app, "rn", "reference names", r, true);
    CLI::App *ref = operation(app, "r", "references", r, true);
    CLI::App *describe = app.add_subcommand("describe", "a class's methods and what each parameter means");
    describe->add_option("class", r.cls, "CIM class")->required();
    describe->add_option("method", r.method, "only this method");
    CLI::App *invoke = app.add_subcommand("invoke", "invoke a method");
    invoke->add_option("namespace", r.ns, "CIM namespace")->required();
    invoke->add_option("class", r.cls, "CIM class")->required();
    invoke->add_option("method", r.method, "method name")->required();
    invoke->add_option("keys", r.keys, "key=value of the object");
    invoke->add_option("--arg", r.args,
                       "name=value argument (repeatable), read as the parameter's declared type; undeclared: "
                       "7, 0x1F, [1,2,3], \"text\", null, or text")
        ->take_all()
        ->expected(1);
    for (CLI::App *sub : {ei, gi, a, ref}) propertyOption(sub, r);
    for (CLI::App *sub : {an, a}) {
        sub->add_option("--assoc-class", r.filter.assocClass, "association class");
        sub->add_option("--result-class", r.filter.resultClass, "class of the far end");
        sub->add_option("--role", r.filter.role, "role of the source");
        sub->add_option("--result-role", r.filter.resultRole, "role of the far end");
    }
    for (CLI::App *sub : {rn, ref}) {
        sub->add_option("--result-class", r.filter.resultClass, "association class");
        sub->add_option("--role", r.filter.role, "role of the source");
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &e) {
        // --help is no error; a monitoring check's usage error is UNKNOWN.
        return app.exit(e) == 0 ? 0 : health->parsed() ? 3 : 2;
    }

    if (*listen) {
        listenOptions.json = json;
        return cli::listen(listenOptions, std::cout, std::cerr);
    }

    // What stops the command before it runs: for the monitoring check an
    // UNKNOWN verdict, for the others a message and exit status 2.
    const auto cannotRun = [&](const std::string &problem) {
        if (!*health) {
            std::cerr << "tovra-cim: " << problem << '\n';
            return 2;
        }
        cli::printVerdict(cli::unknownVerdict(problem), std::cout, false, json);
        return static_cast<int>(cli::State::Unknown);
    };
    const std::optional<Installation> found = locateInstallation(executablePath().parent_path());
    if (*simulate) {
        if (const std::string problem = cli::runUnderSimulator(found ? &*found : nullptr, scenario, argv);
            !problem.empty())
            return cannotRun(problem);
        if (permissions.empty()) permissions.push_back(options.principal + "=5");
    }
    if (found) applyInstallation(options, *found);

    try {
        if (*describe) {
            cli::describe(declarations(options.mofPaths), r.cls, r.method, std::cout, json);
            return 0;
        }
        if (*health) return runHealth(options, healthRequest, options.echoBrokerLog, json);
        Host host(options);
        for (const auto &[user, level] : pairs(permissions, "permission"))
            host.setPermission(user, static_cast<unsigned>(std::stoul(level.asString())));
        if (*classes) {
            auto list = host.registeredClasses();
            std::cout << (json ? cli::toJson(list).dump(2) + "\n" : cli::toText(list));
            return 0;
        }
        if (*inventory || *tree) {
            const int status =
                *inventory ? cli::printInventory(host, std::cout, json) : cli::printTree(host, std::cout, json);
            hintAtDevice(status != 0);
            return status;
        }
        const PropertyList *props = r.properties.empty() ? nullptr : &r.properties;
        ObjectPathV path = host.path(r.ns, r.cls, pairs(r.keys, "key"));
        if (*ein) return print(host.enumerateInstanceNames(r.ns, r.cls), json);
        if (*ei) return print(host.enumerateInstances(r.ns, r.cls, props), json);
        if (*gi) return print(host.getInstance(path, props), json);
        if (*an) return print(host.associatorNames(path, r.filter), json);
        if (*a) return print(host.associators(path, r.filter, props), json);
        if (*rn) return print(host.referenceNames(path, r.filter.resultClass, r.filter.role), json);
        if (*ref) return print(host.references(path, r.filter.resultClass, r.filter.role, props), json);
        const ClassRepository mof = declarations(options.mofPaths);
        const MethodDecl *method = mof.findMethod(r.cls, r.method);
        const NamedValues args = cli::typedArguments(r.args, method);
        return printMethod(host.invokeMethod(path, r.method, args), method, json);
    } catch (const std::exception &e) {
        return cannotRun(e.what());
    }
}
