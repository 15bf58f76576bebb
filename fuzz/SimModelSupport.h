// Shared by the simulator's scenario and state-file fuzz entries: a model that
// the readers accepted must write back to JSON that reads as the same model,
// and the simulated firmware must serve it to the channel's readers.
#pragma once

#include "Controller.h"
#include "DiskInventory.h"
#include "Platform.h"
#include "RaidInventory.h"
#include "ScenarioIO.h"

#include <tovrasim/Simulator.h>

namespace fuzzsim {

inline void checkRoundTrip(const tovra::sim::Model &model) {
    const nlohmann::json written = tovra::sim::modelToJson(model);
    if (tovra::sim::modelToJson(tovra::sim::modelFromJson(written)) != written) __builtin_trap();
}

// Installs the model in the simulator and reads the controller, every
// enclosure and disk, every RAID set and every volume through the device.
inline void serveAndRead(tovra::sim::Model model) {
    static const bool ready = [] {
        tovra::sim::useVirtualClock(true);
        tovra::sim::captureLog(true);
        return true;
    }();
    static_cast<void>(ready);
    tovra::sim::withModel([&](tovra::sim::Model &m) { m = std::move(model); });
    {
        tovra::DeviceFd device;
        if (!device.valid()) __builtin_trap();
        CMPIStatus status{CMPI_RC_OK, nullptr};
        ControllerInfo controller{};
        EnumTovraComputerSystemInfo(&status, device.get(), &controller);
        WalkDisks(&status, device.get(), [](const EnclosureInfo &, const DiskInfo &) { return true; });
        for (int r = 0; r < 8; ++r) {
            RAIDSetInfo raid{};
            EnumTovraRAIDsInfo(&status, device.get(), r, &raid);
        }
        for (int v = 0; v < 32; ++v) {
            VolumeInfo volume{};
            EnumTovraVolumeInfo(&status, device.get(), v, &volume);
        }
    }
    tovra::sim::clearLog();
}

}  // namespace fuzzsim
