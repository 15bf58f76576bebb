// The sensor and version decoders on hand-made payloads: the sensor array's
// layout, replies that disagree with the enclosure's counts or end early, and
// version texts that do and do not split into numbers.
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstring>
#include <string>
#include <vector>

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
