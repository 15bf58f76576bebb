// The state file and scenario lookup.
#include <dirent.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "SimSupport.h"

namespace simtest {
namespace {

class StateFile : public SimTest {
protected:
    void SetUp() override {
        SimTest::SetUp();
        char pattern[] = "/tmp/tovrasim-state-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        dir_ = pattern;
        path_ = dir_ + "/state.json";
    }
    void TearDown() override {
        sim::setStateFile("");
        for (const auto &name : entries()) std::remove((dir_ + "/" + name).c_str());
        ::rmdir(dir_.c_str());
    }
    std::vector<std::string> entries() const {
        std::vector<std::string> names;
        if (DIR *d = ::opendir(dir_.c_str())) {
            while (const dirent *e = ::readdir(d))
                if (e->d_name[0] != '.') names.push_back(e->d_name);
            ::closedir(d);
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    std::string contents(const std::string &path) const {
        std::ifstream in(path);
        std::ostringstream s;
        s << in.rdbuf();
        return s.str();
    }
    std::string dir_, path_;
    Device d;
};

uint64_t volumeBlocks(const Device &d, uint8_t no) { return w::getLE64(transact(d, 0x21, {no, 0}).data() + 16); }

TEST_F(StateFile, ChangesOutliveAReload) {
    sim::setStateFile(path_);
    ASSERT_EQ(letterOf(transact(d, 0x62, {2})), 'A');
    // Replaced by rename, no leftovers beside the lock file the processes share.
    EXPECT_EQ(entries(), (std::vector<std::string>{"state.json", "state.json.lock"}));
    EXPECT_NE(contents(path_).find("\"version\": 1"), std::string::npos);

    sim::setStateFile("");
    sim::loadScenario("default");
    EXPECT_NE(volumeBlocks(d, 2), 0u);
    sim::setStateFile(path_);  // an existing state file wins over the scenario
    EXPECT_EQ(volumeBlocks(d, 2), 0u);
    EXPECT_EQ(sim::scenarioName(), "default");

    sim::withModel([](sim::Model &m) { m.raidSets[0]->name = "Renamed"; });
    sim::setStateFile("");
    sim::loadScenario("default");
    sim::setStateFile(path_);
    EXPECT_EQ(text(transact(d, 0x20, {0, 0}), 0, 16), "Renamed");
}

TEST_F(StateFile, AnotherVersionIsReplaced) {
    std::ofstream(path_) << "{\"version\": 99, \"model\": {}}";
    sim::setStateFile(path_);
    EXPECT_NE(volumeBlocks(d, 2), 0u);
    EXPECT_NE(contents(path_).find("\"version\": 1"), std::string::npos);
}

TEST_F(StateFile, ScenariosAreFoundByNameOrPath) {
    const std::string custom = dir_ + "/tiny.json";
    std::ofstream(custom) << R"({"controller": {"serial": "TINY0001"},
        "enclosures": [{"index": 0, "slots": 1, "disks": [{"slot": 0, "serial": "T0", "blocks": 1000}]}]})";
    sim::loadScenario(custom);
    EXPECT_EQ(text(transact(d, 0x23), 40, 16), "TINY0001");
    EXPECT_EQ(transact(d, 0x22, {0, 0}).at(76), 0xC0);  // disks are free unless a set claims them

    sim::loadScenario("edge");  // not embedded: read from the scenarios folder
    EXPECT_EQ(text(transact(d, 0x23), 40, 16), "EDGE00000001");
    EXPECT_THROW(sim::loadScenario("no-such-scenario"), std::runtime_error);
    EXPECT_EQ(sim::scenarioName(), "edge");

    std::ofstream(custom) << R"({"enclosures": [{"index": 0, "slots": 9}]})";
    EXPECT_THROW(sim::loadScenario(custom), std::runtime_error);  // enclosure 0 holds 8 slots
    std::ofstream(custom) << R"({"raidSets": [{"number": 0, "members": [[0, 0]]}]})";
    EXPECT_THROW(sim::loadScenario(custom), std::runtime_error);  // a member without a disk
}

}  // namespace
}  // namespace simtest
