// The sensor, battery, port and version decoders on hand-made payloads: the
// sensor array's layout, replies that disagree with the enclosure's counts or
// end early, and version texts that do and do not split into numbers.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstring>
#include <string>
#include <vector>

#include "PortInventory.h"
#include "SensorInventory.h"
#include "SoftwareVersion.h"

namespace {

namespace w = tovra::wire;

EnclosureInfo enclosure(uint8_t volts, uint8_t fans, uint8_t powers, uint8_t temps) {
    EnclosureInfo e{};
    e.EncVoltages = volts;
    e.EncFans = fans;
    e.EncPowers = powers;
    e.EncTemperatures = temps;
    e.members = static_cast<uint8_t>(volts + fans + powers + temps);
    e.unit.reset(new triple[e.members]());
    tovra::prepareSensors(&e);
    return e;
}

std::vector<uint8_t> names(std::initializer_list<const char *> list) {
    std::vector<uint8_t> p(1 + tovra::kSensorNameWidth * list.size(), 0);
    p[0] = static_cast<uint8_t>(list.size());
    size_t at = 1;
    for (const char *n : list) {
        std::memcpy(p.data() + at, n, std::strlen(n));
        at += tovra::kSensorNameWidth;
    }
    return p;
}

std::vector<uint8_t> values(std::array<uint8_t, 4> counts, std::initializer_list<float> list) {
    std::vector<uint8_t> p(4 + 4 * list.size(), 0);
    std::memcpy(p.data(), counts.data(), 4);
    size_t at = 4;
    for (float v : list) {
        w::putLE32(p.data() + at, std::bit_cast<uint32_t>(v));
        at += 4;
    }
    return p;
}

std::vector<std::string> idsOf(const EnclosureInfo &e) {
    std::vector<std::string> out;
    for (unsigned i = 0; i < e.members; ++i) out.emplace_back(e.unit[i].DeviceID);
    return out;
}

TEST(SensorDecoder, NamesAndValuesFillTheArrayInKindOrder) {
    struct Row {
        const char *what;
        std::vector<uint8_t> voltageNames, temperatureNames, values;
        std::vector<std::string> ids;
        std::vector<float> readings;
    };
    const std::vector<Row> rows = {
        {"every sensor named and read", names({"12V", "5V"}), names({"Ambient"}),
         values({2, 1, 1, 1}, {12.1f, 5.0f, 4000, 1, 25.5f}), {"12V", "5V", "Fan 1", "Power 1", "Ambient"},
         {12.1f, 5.0f, 4000, 1, 25.5f}},
        {"fewer names than sensors keep the generated ones", names({"12V"}), names({}),
         values({2, 1, 1, 1}, {12.1f, 5.0f, 4000, 1, 25.5f}), {"12V", "Voltage 2", "Fan 1", "Power 1", "Temperature 1"},
         {12.1f, 5.0f, 4000, 1, 25.5f}},
        {"more values of a kind than sensors are skipped", names({"12V", "5V"}), names({"Ambient"}),
         values({3, 1, 1, 1}, {12.1f, 5.0f, 3.3f, 4000, 1, 25.5f}), {"12V", "5V", "Fan 1", "Power 1", "Ambient"},
         {12.1f, 5.0f, 4000, 1, 25.5f}},
        {"a reply that ends early leaves the rest unread", names({"12V", "5V"}), names({"Ambient"}),
         values({2, 1, 1, 1}, {12.1f, 5.0f}), {"12V", "5V", "Fan 1", "Power 1", "Ambient"}, {12.1f, 5.0f, 0, 0, 0}},
        {"blank names keep the generated ones", names({"   ", "5V"}), names({"Ambient"}),
         values({2, 1, 1, 1}, {1, 2, 3, 4, 5}), {"Voltage 1", "5V", "Fan 1", "Power 1", "Ambient"}, {1, 2, 3, 4, 5}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        EnclosureInfo e = enclosure(2, 1, 1, 1);
        tovra::decodeSensorNames(row.voltageNames.data(), row.voltageNames.size(), SENSOR_TYPE_VOLTAGES, &e);
        tovra::decodeSensorNames(row.temperatureNames.data(), row.temperatureNames.size(), SENSOR_TYPE_TEMPERATURES,
                                 &e);
        tovra::decodeSensorValues(row.values.data(), row.values.size(), &e);
        EXPECT_EQ(idsOf(e), row.ids);
        for (unsigned i = 0; i < e.members; ++i) EXPECT_FLOAT_EQ(e.unit[i].SensorReading, row.readings[i]) << i;
        const SENSORTYPE kinds[] = {SENSOR_TYPE_VOLTAGES, SENSOR_TYPE_VOLTAGES, SENSOR_TYPE_FANS, SENSOR_TYPE_POWERS,
                                    SENSOR_TYPE_TEMPERATURES};
        for (unsigned i = 0; i < e.members; ++i) EXPECT_EQ(e.unit[i].type, kinds[i]) << i;
    }
}

TEST(SensorDecoder, CountsBeyondTheOneByteTotalStayInsideTheArray) {
    // 200 voltages and 100 temperatures: the total wraps to 44 entries.
    EnclosureInfo e = enclosure(200, 0, 0, 100);
    ASSERT_EQ(e.members, 44u);
    std::vector<uint8_t> temperatures(1 + tovra::kSensorNameWidth * 100, 'T');
    temperatures[0] = 100;
    tovra::decodeSensorNames(temperatures.data(), temperatures.size(), SENSOR_TYPE_TEMPERATURES, &e);
    std::vector<uint8_t> readings(4 + 4 * 300, 0);
    readings[0] = 200;
    readings[3] = 100;
    tovra::decodeSensorValues(readings.data(), readings.size(), &e);
    EXPECT_EQ(std::string(e.unit[43].DeviceID), "Voltage 44");
}

TEST(SensorDecoder, AFullWidthNameFitsTheSensorRecord) {
    EnclosureInfo e = enclosure(1, 0, 0, 0);
    const std::string longName(tovra::kSensorNameWidth, 'N');
    std::vector<uint8_t> p = names({longName.c_str()});
    tovra::decodeSensorNames(p.data(), p.size(), SENSOR_TYPE_VOLTAGES, &e);
    EXPECT_EQ(std::string(e.unit[0].DeviceID), longName);
}

TEST(SensorDecoder, BatteryStatus) {
    struct Row {
        std::vector<uint8_t> payload;
        bool present;
        uint8_t charge, status;
        int temperature;
        uint16_t millivolts;
    };
    const std::vector<Row> rows = {
        {{1, 100, 0, 29, 0x0E, 0x10}, true, 100, 0, 29, 4110},
        {{1, 40, 1, 0xFD, 0xD2, 0x0F}, true, 40, 1, -3, 4050},
        {{0, 100, 0, 29, 0x0E, 0x10}, false, 0, 0, 0, 0},
    };
    for (const Row &row : rows) {
        BatteryInfo b{};
        tovra::decodeBatteryStatus(row.payload.data(), 0, &b);
        EXPECT_STREQ(GetBatteryDeviceID(&b), "Battery0");
        EXPECT_EQ(b.Present, row.present);
        EXPECT_EQ(b.Charge, row.charge);
        EXPECT_EQ(b.Status, row.status);
        EXPECT_EQ(b.Temperature, row.temperature);
        EXPECT_EQ(b.Millivolts, row.millivolts);
    }
}

TEST(SensorDecoder, PortsFromTheSystemInformation) {
    struct Row {
        uint8_t ports, rate;
        unsigned expectedPorts;
        const char *rateText;
        std::vector<unsigned> portOfEnclosure;  // enclosures 0 to 3
    };
    const std::vector<Row> rows = {
        {2, 0xA, 2, "6.0 Gbit/s", {0, 1, 1, 1}},
        {4, 0xB, 4, "12.0 Gbit/s", {0, 1, 2, 3}},
        {0, 0x8, 1, "1.5 Gbit/s", {0, 0, 0, 0}},
        {1, 0x6, 1, "Unknown", {0, 0, 0, 0}},
    };
    for (const Row &row : rows) {
        std::vector<uint8_t> payload(256, 0);
        payload[175] = row.ports;
        payload[160] = row.rate;
        w::putLE64(payload.data() + 200, 0x5001B4D50A2C1000ULL);
        AdapterPortInfo info{};
        tovra::decodeAdapterPorts(payload.data(), &info);
        EXPECT_EQ(info.Ports, row.expectedPorts);
        EXPECT_STREQ(tovra::linkRateText(info.LinkRateCode), row.rateText);
        EXPECT_EQ(tovra::sasAddressText(info.SasAddress), "5001B4D50A2C1000");
        for (unsigned enc = 0; enc < 4; ++enc)
            EXPECT_EQ(tovra::portOfEnclosure(enc, info.Ports), row.portOfEnclosure[enc]) << enc;
    }
}

TEST(SoftwareVersion, SplitsLeadingDottedNumbers) {
    struct Row {
        const char *text;
        bool parses;
        std::vector<uint16_t> parts;
    };
    const std::vector<Row> rows = {
        {"V1.56 2023-04-12", true, {1, 56}},
        {"v1.40.00.00-20230131", true, {1, 40, 0, 0}},
        {"1.2.3.4.5", true, {1, 2, 3, 4}},
        {"01.01D02", true, {1, 1}},
        {"0004", true, {4}},
        {"7.", true, {7}},
        {"65535.1", true, {65535, 1}},
        {"65536.1", false, {}},
        {"SN04", false, {}},
        {"", false, {}},
        {"V", false, {}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text);
        auto v = tovra::parseVersion(row.text);
        ASSERT_EQ(v.has_value(), row.parses);
        if (!v) continue;
        EXPECT_EQ(std::vector<uint16_t>(v->part.begin(), v->part.begin() + v->count), row.parts);
    }
    EXPECT_FALSE(tovra::parseVersion(nullptr));
}

}  // namespace
