/* CMIS: up to eight lanes, those of bank 0. */
#include "module.h"

#include <math.h>

/* The module says in which multiple of the unit it counts the bias current: of 1, 2 or 4. */
static double calibrate(const struct module_memory* memory, enum module_kind kind, double raw)
{
    static const double multiples[] = {1, 2, 4, NAN};
    return kind != module_bias ? raw
                               : raw * multiples[module_bits(memory, page_01, 160, 0x18) >> 3];
}

#define FURTHER_PAGES                                                                              \
    (MODULE_PAGE(page_01) | MODULE_PAGE(page_02) | MODULE_PAGE(page_11) | MODULE_PAGE(page_13))

static const struct module_condition conditions[] = {
    /* The bit of flat memory, and that of pages for diagnostics. */
    {FURTHER_PAGES, page_lower, 2, 0x80, 0, 0},
    {MODULE_PAGE(page_13), page_01, 142, 0x20, 0x20, 0x20},
    {MODULE_KIND(module_temperature), page_01, 159, 1, 1, 1},
    {MODULE_KIND(module_voltage), page_01, 159, 2, 2, 2},
    {MODULE_KIND(module_bias), page_01, 160, 1, 1, 1},
    {MODULE_KIND(module_tx_power), page_01, 160, 2, 2, 2},
    {MODULE_KIND(module_rx_power), page_01, 160, 4, 4, 4},
    {0},
};

#define FLAGS(name, offset, kind)                                                                  \
    {name "HighAlarmFlag", page_11, offset, 1, kind},                                              \
        {name "LowAlarmFlag", page_11, (offset) + 1, 1, kind},                                     \
        {name "HighWarningFlag", page_11, (offset) + 2, 1, kind},                                  \
    {                                                                                              \
        name "LowWarningFlag", page_11, (offset) + 3, 1, kind                                      \
    }

/* The numbers of lanes are those of the application that the module lists first. */
static const struct module_field fields[] = {
    {"Identifier", page_lower, 0, 1, module_plain},
    {"CmisRevision", page_lower, 1, 1, module_text},
    {"MemoryModel", page_lower, 2, 1, module_top_bit},
    {"StatusCode", page_lower, 3, 1, module_plain},
    {"Vcc_Temperature_Flag", page_lower, 9, 1, module_plain},
    {"HostLaneCount", page_lower, 88, 1, module_high_digit},
    {"MediaLaneCount", page_lower, 88, 1, module_low_digit},
    {"VendorName", page_00, 129, 16, module_text},
    {"Vendor_PN", page_00, 148, 16, module_text},
    {"Vendor_Rev", page_00, 164, 2, module_text},
    {"Vendor_SN", page_00, 166, 16, module_text},
    {"ExtIdentifier", page_00, 200, 1, module_plain},
    {"InterfaceType", page_00, 203, 1, module_plain},
    {"LaserWavelength", page_01, 138, 2, module_wavelength},
    {"LaserWavelengthTolerance", page_01, 140, 2, module_tolerance},
    {"SupportedPages", page_01, 142, 1, module_plain},
    {"DataPathState", page_11, 128, 4, module_lowest_first},
    {"LaneOutputStatusRX", page_11, 132, 1, module_plain},
    {"LaneOutputStatusTX", page_11, 133, 1, module_plain},
    FLAGS("TXPower", 139, module_tx_power),
    FLAGS("TXBias", 143, module_bias),
    FLAGS("RXPower", 149, module_rx_power),
    {"LoopbackCaps", page_13, 128, 1, module_plain},
    {"DiagMeasurementsCaps", page_13, 129, 1, module_plain},
    {"DiagReportingCaps", page_13, 130, 1, module_plain},
    {"PatternGenAndCheckingLocation", page_13, 131, 1, module_plain},
    {"PatternGenCapsHostSide", page_13, 132, 2, module_lowest_first},
    {"PatternGenCapsMediaSide", page_13, 134, 2, module_lowest_first},
    {0},
};

const struct module_standard module_qsfpd = {
    .identifiers = "\x18\x19\x1B\x1E\x1F\x20", /* QSFP-DD, OSFP, DSFP, and smaller ones with CMIS */
    .pages = MODULE_PAGE(page_lower) | MODULE_PAGE(page_00) | FURTHER_PAGES,
    .conditions = conditions,
    .fields = fields,
    .calibrate = calibrate,
    .lanes = 8,
    .absent_lanes = 210,
    .measurements =
        {
            [module_temperature] = {page_lower, 14, page_02, 128},
            [module_voltage] = {page_lower, 16, page_02, 136},
            [module_bias] = {page_11, 170, page_02, 184},
            [module_tx_power] = {page_11, 154, page_02, 176},
            [module_rx_power] = {page_11, 186, page_02, 192},
        },
};
