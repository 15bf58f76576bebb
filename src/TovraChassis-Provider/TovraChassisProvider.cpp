// "Tovra_Chassis": one chassis per enclosure that has drive slots, keyed by
// the enclosure's identifying text (product name and revision), with the
// enclosure's vendor, product, revision and sensor readings.
#include "ModuleStamp.h"
#include "SensorInventory.h"

#include <string>
#include <vector>

namespace {

// The sensors as three parallel arrays: names, kinds (SENSORTYPE) and readings.
void writeSensors(tovra::PropertyWriter &p, const EnclosureInfo &e) {
    std::vector<std::string> names;
    std::vector<uint16_t> kinds;
    std::vector<float> readings;
    for (unsigned i = 0; i < e.members; ++i) {
        names.emplace_back(e.unit[i].DeviceID);
        kinds.push_back(static_cast<uint16_t>(e.unit[i].type));
        readings.push_back(e.unit[i].SensorReading);
    }
    p.strArray("SensorNames", names);
    p.u16Array("SensorTypes", kinds);
    p.r32Array("SensorReadings", readings);
}

struct Chassis {
    static constexpr const char *kPrefix = "TovraChassisProvider";
    static constexpr const char *kClass = "Tovra_Chassis";
    static constexpr const char *kSuperClass = "CIM_Chassis";
    static constexpr const char *kGetKey = "Tag";
    static inline const char *kKeys[] = {"CreationClassName", "Tag", nullptr};
    static constexpr CMPICount kCapacity = 12;
    static constexpr bool kReadsController = false;
    using Ops = tovra::CachedInstanceOps<Chassis>;

    template <class Emit> static tovra::WalkResult walk(tovra::WalkContext &w, Emit &&emit) {
        for (int enc = 0; enc < 12; ++enc) {
            EnclosureInfo e{};
            if (!EnumTovraEnclosureInfo(w.status, w.fd, enc, &e) || e.EncSlots == 0) continue;
            // A chassis whose sensors cannot be read is still published.
            const bool sensors = EnumTovraEnclosureSensorInfo(w.status, w.fd, enc, &e);
            const bool more = emit(
                [&](tovra::KeyWriter &k) {
                    k.str("CreationClassName", kClass);
                    k.str("Tag", e.EnclosureNameRev);
                },
                [&](tovra::PropertyWriter &p) {
                    p.str("CreationClassName", kClass);
                    p.str("Tag", e.EnclosureNameRev);
                    p.str("ElementName", "Enc" + std::to_string(enc + 1));
                    p.str("Manufacturer", e.Vendor);
                    p.str("Model", e.EnclosureName);
                    p.str("Version", e.Rev);
                    if (sensors) writeSensors(p, e);
                });
            if (!more) break;
        }
        return tovra::WalkResult::Complete;
    }
};

}  // namespace

TOVRA_INSTANCE_PROVIDER(Chassis, Chassis)
