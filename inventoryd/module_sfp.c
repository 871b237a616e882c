/* SFF-8472: one lane, and diagnostics at a second I2C address. */
#include "module.h"

#include <math.h>
#include <string.h>

enum
{
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
        if (module_number(memory, page_A2, at, 4, &bits))
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
    static const uint8_t lines[module_lane_1] = {[module_bias] = 76,
                                                 [module_tx_power] = 80,
                                                 [module_temperature] = 84,
                                                 [module_voltage] = 88};
    uint32_t slope = 0;
    uint32_t offset = 0;
    if (kind < module_temperature || module_bits(memory, page_lower, monitoring, is_raw) == 0)
    {
        return raw;
    }
    if (kind == module_rx_power)
    {
        return calibrate_rx_power(memory, raw);
    }
    return module_number(memory, page_A2, lines[kind], 2, &slope) &&
                   module_number(memory, page_A2, lines[kind] + 2U, 2, &offset)
               ? raw * slope / 256 + module_signed(offset)
               : NAN;
}

/* The diagnostics may be absent, or behind a change of address, which nothing here asks for. */
static const struct module_condition conditions[] = {
    {MODULE_PAGE(page_A2), page_lower, monitoring, 0x44, 0x40, 0x40},
    {MODULE_KIND(module_laser), page_lower, 8, 0x0C, 0, 0}, /* the bits of cables */
    {MODULE_KIND(module_flags), page_lower, 93, 0x80, 0x80, 0x80},
    {MODULE_MEASUREMENTS, page_A2, 110, 0x01, 0, 0}, /* the bit of data that isn't ready */
    {0},
};

static const struct module_field fields[] = {
    {"Identifier", page_lower, 0, 1, module_plain}, /* a code of SFF-8024 */
    {"ExtIdentifier", page_lower, 1, 1, module_plain},
    {"InterfaceType", page_lower, 2, 1, module_plain},
    {"VendorName", page_lower, 20, 16, module_text},
    {"Vendor_PN", page_lower, 40, 16, module_text},
    {"Vendor_Rev", page_lower, 56, 4, module_text},
    {"LaserWavelength", page_lower, 60, 2, module_laser},
    {"Vendor_SN", page_lower, 68, 16, module_text},
    {"StatusCode", page_A2, 110, 1, module_plain},
    {"AlarmFlags1", page_A2, 112, 1, module_flags},
    {"RxPowerAlarmFlag1", page_A2, 113, 1, module_flags},
    {"AlarmFlags2", page_A2, 116, 1, module_flags},
    {"RxPowerAlarmFlag2", page_A2, 117, 1, module_flags},
    {0},
};

const struct module_standard module_sfp = {
    .identifiers = "\x03\x0B", /* SFP and its faster kinds, DWDM-SFP */
    .pages = MODULE_PAGE(page_lower) | MODULE_PAGE(page_A2),
    .conditions = conditions,
    .fields = fields,
    .calibrate = calibrate,
    .lanes = 1,
    .measurements =
        {
            [module_temperature] = {page_A2, 96, page_A2, 0},
            [module_voltage] = {page_A2, 98, page_A2, 8},
            [module_bias] = {page_A2, 100, page_A2, 16},
            [module_tx_power] = {page_A2, 102, page_A2, 24},
            [module_rx_power] = {page_A2, 104, page_A2, 32},
        },
};
