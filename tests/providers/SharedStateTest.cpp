// Several CIMOM processes, one adapter: CLI processes that share a state file
// with this one change the same simulated adapter, and no change is lost when
// they run at once.
#include <tovrasim/Simulator.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern char **environ;

namespace {

namespace sim = tovra::sim;

class SharedState : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/tovra-shared-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        dir_ = pattern;
        state_ = dir_ + "/state.json";
        sim::loadScenario("default");
        sim::setStateFile(state_);
    }
    void TearDown() override {
        sim::setStateFile("");
        for (const char *name : {"/state.json", "/state.json.lock", "/epochs"}) std::remove((dir_ + name).c_str());
        ::rmdir(dir_.c_str());
    }

    // Starts the CLI with the simulator preloaded and the shared state file.
    pid_t startCli(const std::vector<std::string> &args) const {
        std::vector<std::string> env = {std::string("LD_PRELOAD=") + TOVRA_CLI_PRELOAD, "TOVRA_SIM_STATE=" + state_,
                                        "ASAN_OPTIONS=verify_asan_link_order=0", "TOVRA_CACHE_EPOCHS=" + dir_ + "/epochs"};
        std::vector<std::string> argv = {TOVRA_CLI, "--mof", TOVRA_MOF_DIR, "--registration",
                                         std::string(TOVRA_MOF_DIR) + "/Tovra.reg", "--provider-dir",
                                         TOVRA_PROVIDER_DIR, "--permission", "root=5"};
        argv.insert(argv.end(), args.begin(), args.end());
        std::vector<char *> cargv, cenv;
        for (auto &a : argv) cargv.push_back(a.data());
        cargv.push_back(nullptr);
        for (auto &e : env) cenv.push_back(e.data());
        cenv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        pid_t pid = -1;
        const int rc = posix_spawn(&pid, TOVRA_CLI, &actions, nullptr, cargv.data(), cenv.data());
        posix_spawn_file_actions_destroy(&actions);
        return rc == 0 ? pid : -1;
    }
    static int finish(pid_t pid) {
        int status = 0;
        if (pid < 0 || ::waitpid(pid, &status, 0) != pid) return -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    static std::vector<std::string> volumeNames() {
        std::vector<std::string> names;
        sim::withModel([&](sim::Model &m) {
            for (const auto &v : m.volumes)
                if (v) names.push_back(v->name);
        });
        return names;
    }

    std::string dir_, state_;
};

TEST_F(SharedState, AVolumeCreatedInOneProcessIsSeenByTheOthers) {
    sim::withModel([](sim::Model &m) { m.volumes[2].reset(); });  // made here, seen by the child
    const pid_t create = startCli({"invoke", "tovra/cimv2", "Tovra_StorageVolume", "CreateVolume", "--arg", "ID=2",
                                   "--arg", "LUN=0", "--arg", "RAIDNo=2", "--arg", "Strp=64", "--arg", "Ll=5", "--arg",
                                   "Cap=10", "--arg", "Name=FromChild", "--arg", "Cache=1", "--arg", "FG=0", "--arg",
                                   "GtT=0", "--arg", "Tag=1"});
    ASSERT_EQ(finish(create), 0);
    EXPECT_EQ(volumeNames(), (std::vector<std::string>{"Volume Set # 000", "Volume Set # 001", "FromChild"}))
        << "the child took the free number 2 this process made";
}

TEST_F(SharedState, ChangesOfProcessesRunningAtOnceAreAllKept) {
    constexpr int kProcesses = 4;
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
        const std::string id = "ID=" + std::to_string(4 + i);
        const std::string name = "Name=P" + std::to_string(i);
        children.push_back(startCli({"invoke", "tovra/cimv2", "Tovra_StorageVolume", "CreateVolume", "--arg", id,
                                     "--arg", "LUN=0", "--arg", "RAIDNo=1", "--arg", "Strp=64", "--arg", "Ll=0",
                                     "--arg", "Cap=1", "--arg", name, "--arg", "Cache=1", "--arg", "FG=0", "--arg",
                                     "GtT=0", "--arg", "Tag=1"}));
    }
    for (pid_t pid : children) EXPECT_EQ(finish(pid), 0);
    EXPECT_EQ(volumeNames().size(), 3u + kProcesses);
}

}  // namespace
