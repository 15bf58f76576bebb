#include "Firmware.h"

#include <map>

#include "Wire.h"

namespace tovra::sim {

uint8_t Request::at(std::size_t i) const { return i < wire::kMessageDataSize ? buf[i] : 0; }

void logEvent(Model &model, uint32_t now, uint8_t severity, const std::string &device, const std::string &message) {
    auto &log = model.events;
    log.insert(log.begin(), Event{now, severity, device, message});
    if (log.size() > kEventLogSize) log.resize(kEventLogSize);
}

void Context::event(uint8_t severity, const std::string &device, const std::string &message) {
    logEvent(model, now, severity, device, message);
}

namespace {

struct Route {
    uint16_t minLength;
    Outcome (*handler)(Context &);
};

const std::map<uint8_t, Route> &routes() {
    static const std::map<uint8_t, Route> table = {
        {0x13, {1, inventoryCommand}},    {0x14, {17, settingsCommand}},   {0x19, {1, eventCommand}},
        {0x1A, {2, eventCommand}},        {0x1B, {3, enclosureCommand}},   {0x1F, {526, settingsCommand}},
        {0x20, {3, inventoryCommand}},    {0x21, {3, inventoryCommand}},   {0x22, {3, inventoryCommand}},
        {0x23, {1, inventoryCommand}},    {0x24, {1, eventCommand}},       {0x30, {1, settingsCommand}},
        {0x31, {2, settingsCommand}},     {0x32, {17, settingsCommand}},   {0x33, {2, settingsCommand}},
        {0x39, {6, settingsCommand}},     {0x40, {9, passThroughCommand}}, {0x41, {9, passThroughCommand}},
        {0x42, {3, passThroughCommand}},  {0x50, {22, raidSetCommand}},    {0x51, {2, raidSetCommand}},
        {0x52, {6, raidSetCommand}},      {0x53, {2, raidSetCommand}},     {0x54, {10, raidSetCommand}},
        {0x55, {11, raidSetCommand}},     {0x56, {2, raidSetCommand}},     {0x60, {42, volumeCommand}},
        {0x61, {38, volumeCommand}},      {0x62, {2, volumeCommand}},
    };
    return table;
}

}  // namespace

Outcome runFirmware(Model &model, const Request &req, uint32_t now) {
    const auto &table = routes();
    const auto it = table.find(req.cmd());
    if (it == table.end()) return reply(result::Unsupported);
    if (req.len < it->second.minLength) return reply(result::BadParameter);
    Context ctx{model, req, now};
    return it->second.handler(ctx);
}

Bytes driverInfoPayload(const Model &model) {
    PayloadWriter w(40);
    w.text(0, 32, model.driver.version, 0);
    w.text(32, 8, model.driver.name, 0);
    return w.take();
}

Bytes pciInfoPayload(const Model &model) {
    PayloadWriter w(32);
    w.text(0, 16, model.pci.width, 0);
    w.text(16, 16, model.pci.speed, 0);
    return w.take();
}

}  // namespace tovra::sim
