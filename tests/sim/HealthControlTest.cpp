// The control commands that change a running adapter's health: what the
// firmware then answers (disk state, RAID set state and fail mask, battery,
// the event log), and the refusals, which change nothing.
#include "SimSupport.h"

#include <functional>
#include <stdexcept>

namespace simtest {
namespace {

using Args = std::vector<std::string>;

class HealthControl : public SimTest {
public:
    Device d;

    uint8_t diskState(uint8_t enc, uint8_t slot) { return transact(d, 0x22, {slot, enc}).at(76); }
    uint8_t setState(uint8_t no) { return transact(d, 0x20, {no, 0}).at(62); }
    uint32_t setFailMask(uint8_t no) { return w::getLE32(transact(d, 0x20, {no, 0}).data() + 24); }
    Bytes battery() { return transact(d, 0x1B, {0, 3, 0}); }
    uint16_t events() { return w::getLE16(transact(d, 0x19).data()); }
    std::string newestEvent() {
        const Bytes e = transact(d, 0x1A, {0});
        return std::string(reinterpret_cast<const char *>(e.data() + 8)).substr(0, 24) + ": " +
               reinterpret_cast<const char *>(e.data() + 32);
    }
};

// Each row from the default scenario: the commands, then what the wire shows.
TEST_F(HealthControl, ChangesShowAsTheFirmwareReportsThem) {
    struct Case {
        const char *what;
        std::vector<Args> commands;
        std::function<void(HealthControl &)> shows;
    };
    const std::vector<Case> cases = {
        {"a member fails: the disk failed, the set degraded (state 5, member bit 0)",
         {{"fail-disk", "2", "1"}},
         [](HealthControl &t) {
             EXPECT_EQ(t.diskState(1, 0), 0x90);
             EXPECT_EQ(t.setState(1), 5);
             EXPECT_EQ(t.setFailMask(1), 1u);
             EXPECT_EQ(t.newestEvent(), "Raid Set # 001: RaidSet Degraded");
         }},
        {"replaced: a member again, the set rebuilding with the member still in the mask",
         {{"fail-disk", "2", "2"}, {"replace-disk", "2", "2"}},
         [](HealthControl &t) {
             EXPECT_EQ(t.diskState(1, 1), 0x80);
             EXPECT_EQ(t.setState(1), 6);
             EXPECT_EQ(t.setFailMask(1), 2u);
             EXPECT_EQ(t.newestEvent(), "Raid Set # 001: Start Rebuilding");
         }},
        {"rebuilt: normal", {{"fail-disk", "2", "2"}, {"replace-disk", "2", "2"}, {"finish-rebuild", "2"}},
         [](HealthControl &t) {
             EXPECT_EQ(t.setState(1), 3);
             EXPECT_EQ(t.setFailMask(1), 0u);
         }},
        {"a second failure during the rebuild ends it",
         {{"fail-disk", "2", "2"}, {"replace-disk", "2", "2"}, {"fail-disk", "2", "3"}},
         [](HealthControl &t) {
             EXPECT_EQ(t.setState(1), 5);
             EXPECT_EQ(t.setFailMask(1), 4u);
         }},
        {"battery low", {{"battery", "low"}},
         [](HealthControl &t) {
             const Bytes b = t.battery();
             EXPECT_EQ(b.at(0), 1);
             EXPECT_LE(b.at(1), 25);
         }},
        {"battery absent", {{"battery", "absent"}}, [](HealthControl &t) { EXPECT_EQ(t.battery().at(0), 0); }},
        {"an event with severity and device",
         {{"event", "-s", "error", "-d", "Enc1 Slot2", "Media", "error"}},
         [](HealthControl &t) {
             EXPECT_EQ(t.newestEvent(), "Enc1 Slot2: Media error");
             EXPECT_EQ(transact(t.d, 0x1A, {0}).at(4), 2);
         }},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        sim::loadScenario("default");
        for (const Args &a : c.commands) EXPECT_NO_THROW(sim::runControl(a)) << a.front();
        c.shows(*this);
    }
}

TEST_F(HealthControl, RefusedCommandsChangeNothing) {
    const std::vector<Args> refused = {
        {},
        {"explode"},
        {"fail-disk", "2"},
        {"fail-disk", "0", "1"},
        {"fail-disk", "13", "1"},
        {"fail-disk", "1", "x"},
        {"fail-disk", "1", "7"},       // failed already
        {"fail-disk", "3", "1"},       // no such enclosure
        {"replace-disk", "1", "1"},    // has not failed
        {"finish-rebuild", "1"},       // not rebuilding
        {"battery", "empty"},
        {"sensor", "1", "Nothing", "3"},
        {"temperature", "1", "12V", "3"},  // not a temperature
        {"sensor", "1", "12V", "twelve"},
        {"event"},
        {"event", "-s", "fatal", "text"},
        {"event", std::string(65, 'x')},
    };
    const uint16_t before = events();
    for (const Args &a : refused) {
        SCOPED_TRACE(a.empty() ? "(none)" : a.front());
        EXPECT_THROW(sim::runControl(a), std::invalid_argument);
    }
    EXPECT_EQ(events(), before);
    EXPECT_EQ(diskState(0, 0), 0x80);
    EXPECT_FALSE(sim::controlUsage().empty());
}

}  // namespace
}  // namespace simtest
