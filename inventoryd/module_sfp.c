/* SFF-8472: one lane, and diagnostics at a second I2C address. */
#include "module.h"

#include <math.h>
#include <string.h>

enum
{
    A0 = module_lower,
    A2 = module_diagnostics,
    monitoring = 92, /* the byte that says how the module measures */
    is_raw = 0x10    /* it has constants in its memory, which hold for limits, too */
};

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

/* The diagnostics may be absent, or behind a change of address, which nothing here asks for. */
static const struct module_condition conditions[] = {
    {MODULE_PAGE(A2), A0, monitoring, 0x44, 0x40, 0x40},
    {MODULE_KIND(module_laser), A0, 8, 0x0C, 0, 0}, /* the bits of cables */
    {MODULE_KIND(module_flags), A0, 93, 0x80, 0x80, 0x80},
    {MODULE_MEASUREMENTS, A2, 110, 0x01, 0, 0}, /* the bit of data that isn't ready */
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
    .identifiers = "\x03\x0B", /* SFP and its faster kinds, DWDM-SFP */
    .pages = MODULE_PAGE(A0) | MODULE_PAGE(A2),
    .conditions = conditions,
    .condition_count = sizeof conditions / sizeof *conditions,
    .fields = fields,
    .field_count = sizeof fields / sizeof *fields,
    .calibrate = calibrate,
    .limits_page = A2,
    .limits = {0, 8, 16, 24, 32},
};
