// Modules that the test makes up, byte for byte, and what their tables say of them.
extern "C"
{
#include "module.h"
}

#include <algorithm>
#include <cmath>
#include <cstring>
#include <sstream>

#include <gmock/gmock.h>

namespace
{

using testing::Contains;
using testing::Pair;

using Numbers = std::map<std::string, double>;

struct Properties
{
    Numbers numbers;
    std::map<std::string, std::string> texts;
};

struct Module : module_memory
{
    Module() : module_memory{}
    {
    }

    void write(module_page page, unsigned int offset, const std::string& data)
    {
        std::memcpy(&bytes[page][offset % module_page_size], data.data(), data.size());
        sizes[page] = module_page_size;
    }

    // The high byte first.
    void words(module_page page, unsigned int offset, const std::vector<int>& values)
    {
        std::string data;
        for (const int value : values)
        {
            data += {static_cast<char>(value >> 8), static_cast<char>(value)};
        }
        write(page, offset, data);
    }

    void fill(int byte)
    {
        std::memset(bytes, byte, sizeof bytes);
        std::ranges::fill(sizes, std::size_t{module_page_size});
    }

    [[nodiscard]] Properties read(const module_standard* standard) const
    {
        Properties found;
        module_put(reinterpret_cast<object*>(&found), standard, this);
        return found;
    }

    [[nodiscard]] Numbers numbers() const
    {
        return read(module_standard_of(this)).numbers;
    }

    // Of "name=value name=value", and of others.
    void expect(const std::string& values) const
    {
        Numbers expected;
        std::istringstream rest(values);
        for (std::string name; getline(rest >> std::ws, name, '=') && rest >> expected[name];)
        {
        }
        EXPECT_THAT(numbers(), testing::IsSupersetOf(expected));
    }
};

constexpr int celsius = 256; // the unit's number of steps

Module sfp()
{
    Module module;
    module.write(module_lower, 0, std::string("\x03\x04\x07"));
    module.write(module_lower, 20, "Maker           ");
    module.words(module_lower, 60, {850});
    module.write(module_lower, 92, "\x68\xF0");
    module.words(module_diagnostics, 0, {75 * celsius, -5 * celsius, 70 * celsius, 0});
    module.words(module_diagnostics, 16, {7000, 1000, 6000, 2000});
    module.words(module_diagnostics, 32, {20000, 100, 10000, 200});
    module.words(module_diagnostics, 96, {-10 * celsius - 128, 33000, 6500, 6000, 150});
    module.write(module_diagnostics, 112, "\x40");
    return module;
}

Module cmis()
{
    Module module;
    module.write(module_lower, 0, std::string("\x18\x52\0\x07", 4));
    module.words(module_lower, 14, {80 * celsius});
    module.write(module_lower, 88, "\x84");
    module.write(module_upper_00, 210, std::string(3, '\0'));
    module.words(module_upper_01, 138, {26200, 1300});
    module.write(module_upper_01, 142, "\x20");
    module.write(module_upper_01, 159, "\x03\x07");
    module.words(module_upper_02, 128, {75 * celsius, -5 * celsius, 70 * celsius, -256});
    module.words(module_upper_02, 184, {30000, 1000, 20000, 2000});
    module.write(module_upper_11, 128, "\x21\x43\x65\x87");
    module.words(module_upper_11, 170, {10000, 10001, 10002, 10003, 999, 0, 0, 0});
    module.write(module_upper_13, 132, "\x01\x80");
    return module;
}

TEST(Modules, AnSfpIsInUnitsAndHasItsStatesAndNothingItDoesntMeasure)
{
    Module module = sfp();
    EXPECT_EQ(module.read(&module_sfp).texts.at("VendorName"), "Maker");
    module.expect("TempHighAlarmThreshold=75 TempLowAlarmThreshold=-5 TempValue=-10.5 "
                  "VoltageValue=3.3 TXBiasCurrentValue=13 RXInputPowerValue=0.015 "
                  "LaserWavelength=850 AlarmFlags1=64");
    // A low alarm, no limits, a high and a low warning.
    module.expect("TemperatureStatus=4 VoltageStatus=0 TxBiasCurrentStatus=3 RxInputPowerStatus=2");
    module.write(module_diagnostics, 110, "\x01"); // not ready
    module.write(module_lower, 8, "\x04");         // a cable
    module.write(module_lower, 93, std::string(1, '\0'));
    module.expect("TempValue=0 TempHighAlarmThreshold=0 TemperatureStatus=0 LaserWavelength=0 "
                  "AlarmFlags1=0");
}

TEST(Modules, AnSfpThatIsntCalibratedIsCorrectedByItsConstants)
{
    Module module = sfp();
    module.write(module_lower, 92, "\x58");
    module.words(module_diagnostics, 56, {0, 0, 0, 0, 0, 0, 0x4000, 0, 0x4120, 0}); // 2x + 10
    module.words(module_diagnostics, 76, {512, -1000, 0, 0, 256, celsius, 0x7FFF, 0x7FFF});
    module.expect("TXBiasCurrentValue=24 RXInputPowerValue=0.031 TempValue=-9.5 "
                  "TempLowAlarmThreshold=-4");
    module.words(module_diagnostics, 68, {0x7FC0, 0}); // not a number
    module.sizes[module_diagnostics] = 106;
    EXPECT_EQ(module.numbers().at("RXInputPowerValue"), 0);
}

TEST(Modules, AQsfpsLanesAreApartAndTheWorstIsItsState)
{
    Module module;
    module.write(module_lower, 0, std::string("\x11\x08\0", 3));
    module.words(module_lower, 34, {300, 301, 99, 303, 3000, 3001, 3002, 3004, 7, 8, 9, 10});
    module.write(module_upper_00, 147, std::string(1, '\0'));
    module.words(module_upper_00, 186, {26000, 1300});
    module.write(module_upper_00, 220, "\x04");
    module.words(module_upper_03, 176, {1000, 100, 900, 200, 4000, 100, 3003, 200});
    module.expect("RX3InputPowerValue=99 TX4BiasCurrentValue=601 TX1OutputPowerValue=7 "
                  "LaserWavelength=1300 LaserWavelengthTolerance=6.5 RxInputPowerStatus=4 "
                  "TxBiasCurrentStatus=3");
    module.write(module_upper_00, 220, std::string(1, '\0'));
    EXPECT_EQ(module.numbers().at("TX1OutputPowerValue"), 0);
    module.write(module_upper_00, 147, "\xA0"); // copper
    module.expect("LaserWavelength=0 RX3InputPowerValue=0");
    EXPECT_EQ(module_things(&module_qsfp, &module) >> 24,
              1 << module_lower | 1 << module_upper_00 | 1 << module_upper_03);
    module.write(module_lower, 2, "\x04"); // flat memory
    EXPECT_EQ(module_things(&module_qsfp, &module) >> 24, 1 << module_lower | 1 << module_upper_00);
}

TEST(Modules, AQsfpdHasTheLanesAndPagesThatItTells)
{
    Module module = cmis();
    EXPECT_EQ(module.read(&module_qsfpd).texts.at("CmisRevision"), "5.2");
    module.expect("MemoryModel=1 HostLaneCount=8 MediaLaneCount=4 TempLowAlarmThreshold=-5 "
                  "TempLowWarningThreshold=-1 LaserWavelength=1310 DataPathState=2271560481 "
                  "PatternGenCapsHostSide=32769 TX1BiasCurrentValue=2000 TX5BiasCurrentValue=200 "
                  "TxBiasCurrentStatus=4 TemperatureStatus=5");
    module.write(module_upper_00, 210, "\xF0"); // the first four lanes alone
    module.write(module_upper_01, 160, "\x17"); // in units of 8 microamperes
    module.expect("TX1BiasCurrentValue=8000 TX5BiasCurrentValue=0 TxBiasHighAlarmThreshold=240 "
                  "TxBiasCurrentStatus=1");
    module.write(module_upper_01, 160, "\x1F"); // a reserved unit
    EXPECT_EQ(module.numbers().at("TX1BiasCurrentValue"), 0);
    EXPECT_NE(module_things(&module_qsfpd, &module) & MODULE_PAGE(module_upper_13), 0);
    module.write(module_upper_01, 142, std::string(1, '\0'));
    EXPECT_EQ(module_things(&module_qsfpd, &module) & MODULE_PAGE(module_upper_13), 0);
}

TEST(Modules, MemoryThatIsntProgrammedOrNotAllThereHasNoValue)
{
    Module module;
    EXPECT_EQ(module_standard_of(&module), nullptr);
    module.fill(0xFF);
    EXPECT_EQ(module_standard_of(&module), nullptr);
    for (const auto* standard : {&module_sfp, &module_qsfp, &module_qsfpd})
    {
        const auto found = module.read(standard);
        EXPECT_THAT(found.texts, Contains(Pair("Vendor_SN", "")));
        EXPECT_THAT(found.numbers, Contains(Pair("TemperatureStatus", 0)));
        Module absent;
        for (const auto& [name, value] : absent.read(standard).numbers)
        {
            EXPECT_EQ(value, 0) << name;
        }
    }
    module = sfp();
    module.sizes[module_lower] = 35; // a byte less than the vendor's name
    module.sizes[module_diagnostics] = 97;
    EXPECT_EQ(module.read(&module_sfp).texts.at("VendorName"), "");
    EXPECT_EQ(module.numbers().at("TempValue"), 0);
    module = sfp();
    module.write(module_lower, 68, "SN");
    module_hide_serial(&module_sfp, &module);
    EXPECT_EQ(module.read(&module_sfp).texts.at("Vendor_SN"), "");
}

} // namespace

// The properties' place, if there is one. What the bus wouldn't take must not come here.
extern "C"
{
    void object_put_real(object* object, const char* member, double value)
    {
        ASSERT_TRUE(std::isfinite(value)) << member;
        if (object != nullptr)
        {
            reinterpret_cast<Properties*>(object)->numbers[member] = value;
        }
    }

    void object_put_string(object* object, const char* member, const char* text)
    {
        const auto is_printable = [](char each) { return each >= ' ' && each <= '~'; };
        ASSERT_TRUE(std::all_of(text, text + std::strlen(text), is_printable)) << member;
        if (object != nullptr)
        {
            reinterpret_cast<Properties*>(object)->texts[member] = text;
        }
    }
}
