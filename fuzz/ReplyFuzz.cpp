// Fuzz entry for everything a misbehaving adapter can send: the input is cut
// into read chunks (each chunk's length taken from the input), reassembled,
// and the frame's payload is handed to every decoder.
#include "Controller.h"
#include "DiskInventory.h"
#include "EnclosureInventory.h"
#include "RaidInventory.h"

#include <algorithm>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    uint8_t frame[tovra::wire::kBufferSize] = {};
    tovra::ReplyAssembler assembler(frame);
    size_t at = 0;
    auto step = tovra::ReplyAssembler::Step::NeedMore;
    while (at < size && step == tovra::ReplyAssembler::Step::NeedMore) {
        // Lengths below 128 are taken as they are (short start chunks matter);
        // larger ones reach past the driver's buffer size.
        const size_t wanted = data[at] < 128 ? data[at] : (data[at] - 127u) * 9u;
        ++at;
        const size_t length = std::min(wanted, size - at);
        uint8_t chunk[tovra::wire::kMessageDataSize] = {};  // zeroed as the driver's buffer is
        std::memcpy(chunk, data + at, std::min(length, sizeof chunk));
        step = assembler.feed(chunk, std::min(length, sizeof chunk));
        at += length;
    }
    // A complete frame must hold its checksum byte, as the reader reads it next.
    if (step == tovra::ReplyAssembler::Step::Complete) {
        const uint16_t length = tovra::wire::getLE16(frame + 3);
        if (6u + length > sizeof frame) __builtin_trap();
        static_cast<void>(tovra::wire::frameChecksum(frame, length) == frame[5 + length]);
    }
    const uint8_t *payload = frame + 5;
    ControllerInfo controller{};
    tovra::decodeSystemInfo(payload, &controller);
    SoftwareInfo software{};
    tovra::decodeFirmwareInfo(payload, &software);
    tovra::decodeDriverInfo(payload, &software);
    PCIInfo pci{};
    tovra::decodePciInfo(payload, &pci);
    DiskInfo disk{};
    tovra::decodeDiskInfo(payload, 27, 11, &disk);
    EnclosureInfo enclosure{};
    tovra::decodeEnclosureProperty(payload, 11, &enclosure);
    RAIDSetInfo raid{};
    tovra::decodeRaidSet(payload, 7, &raid);
    VolumeInfo volume{};
    tovra::decodeVolume(payload, 31, &volume);
    return 0;
}
