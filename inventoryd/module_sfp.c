/* SFF-8472: one lane, and diagnostics at a second I2C address. */
#include "module.h"

#include <math.h>
#include <string.h>

/* The byte that says how the module measures. */
enum
{
    monitoring = 92,
    is_monitored = 0x40,
    is_raw = 0x10,   /* its constants are in its memory, and hold for limits, too */
    is_hidden = 0x04 /* behind a change of address, which nothing here asks for */
};

static uint32_t pages(const struct module_memory* memory)
{
    return module_bits(memory, module_lower, monitoring, is_monitored | is_hidden) == is_monitored
               ? 1U << module_lower | 1U << module_diagnostics
               : 1U << module_lower;
}

static uint32_t kinds(const struct module_memory* memory)
{
    enum
    {
        passive_or_active_cable = 0x0C,
        has_flags = 0x80,
        not_ready = 0x01,
        measurements = 1 << module_temperature | 1 << module_voltage | 1 << module_bias |
                       1 << module_tx_power | 1 << module_rx_power
    };
    uint32_t kinds = 0;
    kinds |= module_bits(memory, module_lower, 8, passive_or_active_cable) ? 0 : 1U << module_laser;
    kinds |= module_bits(memory, module_lower, 93, has_flags) ? 1U << module_flags : 0;
    kinds |= module_bits(memory, module_diagnostics, 110, not_ready) ? 0 : measurements;
    return kinds;
}

/* A polynomial, whose coefficients are IEEE 754 singles from the fourth power down. */
static double calibrate_rx_power(const struct module_memory* memory, double raw)
{
    double sum = 0;
    for (unsigned int at = 56; at <= 72; at += 4)
    {
        uint32_t bits = 0;
        float coefficient = NAN;
        if (module_number(memory, module_diagnostics, at, 4, &bits))
        {
            memcpy(&coefficient, &bits, sizeof coefficient);
        }
        sum = sum * raw + (double)coefficient;
    }
    return sum;
}

/* A line, but for the received power. Its slope is in units of 1/256. */
static double calibrate(const struct module_memory* memory, enum module_kind kind, double raw)
{
    static const uint8_t lines[module_lane_0] = {[module_bias] = 76,
                                                 [module_tx_power] = 80,
                                                 [module_temperature] = 84,
                                                 [module_voltage] = 88};
    uint32_t slope = 0;
    uint32_t offset = 0;
    if (kind < module_temperature || module_bits(memory, module_lower, monitoring, is_raw) == 0)
    {
        return raw;
    }
    if (kind == module_rx_power)
    {
        return calibrate_rx_power(memory, raw);
    }
    return module_number(memory, module_diagnostics, lines[kind], 2, &slope) &&
                   module_number(memory, module_diagnostics, lines[kind] + 2U, 2, &offset)
               ? raw * slope / 256 + module_signed(offset)
               : NAN;
}

enum
{
    A0 = module_lower,
    A2 = module_diagnostics
};

static const struct module_field fields[] = {
    {"Identifier", 'y', A0, 0, 1, module_plain, 0},
    {"ExtIdentifier", 'y', A0, 1, 1, module_plain, 0},
    {"InterfaceType", 'y', A0, 2, 1, module_plain, 0},
    {"VendorName", 's', A0, 20, 16, module_plain, 0},
    {"Vendor_PN", 's', A0, 40, 16, module_plain, 0},
    {"Vendor_Rev", 's', A0, 56, 4, module_plain, 0},
    {"LaserWavelength", 'd', A0, 60, 2, module_laser, 0},
    {"Vendor_SN", 's', A0, 68, 16, module_plain, 0},
    MODULE_LIMITS("Temp", "Warning", 'q', 'd', A2, 0, module_temperature),
    MODULE_LIMITS("Vcc", "Warn", 'd', 'd', A2, 8, module_voltage),
    MODULE_LIMITS("TxBias", "Warn", 'd', 'd', A2, 16, module_bias),
    MODULE_LIMITS("TxPower", "Warn", 'd', 'd', A2, 24, module_tx_power),
    MODULE_LIMITS("RxPower", "Warn", 'd', 'd', A2, 32, module_rx_power),
    {"TempValue", 'd', A2, 96, 2, module_temperature, 0},
    {"VoltageValue", 'd', A2, 98, 2, module_voltage, 0},
    {"TXBiasCurrentValue", 'd', A2, 100, 2, module_bias, 0},
    {"TXOutputPowerValue", 'd', A2, 102, 2, module_tx_power, 0},
    {"RXInputPowerValue", 'd', A2, 104, 2, module_rx_power, 0},
    {"StatusCode", 'y', A2, 110, 1, module_plain, 0},
    {"AlarmFlags1", 'y', A2, 112, 1, module_flags, 0},
    {"RxPowerAlarmFlag1", 'y', A2, 113, 1, module_flags, 0},
    {"AlarmFlags2", 'y', A2, 116, 1, module_flags, 0},
    {"RxPowerAlarmFlag2", 'y', A2, 117, 1, module_flags, 0},
    {"TemperatureStatus", 'y', A2, 96, 2, module_temperature, 1},
    {"VoltageStatus", 'y', A2, 98, 2, module_voltage, 1},
    {"TxBiasCurrentStatus", 'y', A2, 100, 2, module_bias, 1},
    {"TxOutputPowerStatus", 'y', A2, 102, 2, module_tx_power, 1},
    {"RxInputPowerStatus", 'y', A2, 104, 2, module_rx_power, 1},
};

const struct module_standard module_sfp = {
    pages, kinds, calibrate, A2, {0, 8, 16, 24, 32}, fields, sizeof fields / sizeof *fields,
};
