/* CMIS: up to eight lanes, those of bank 0. */
#include "module.h"

#include <math.h>

enum
{
    LO = module_lower,
    U0 = module_upper_00,
    U1 = module_upper_01,
    U2 = module_upper_02,
    U11 = module_upper_11,
    U13 = module_upper_13
};

/* The module says in which multiple of the unit it counts the bias current: of 1, 2 or 4. */
static double calibrate(const struct module_memory* memory, enum module_kind kind, double raw)
{
    static const double multiples[] = {1, 2, 4, NAN};
    return kind != module_bias
               ? raw
               : raw * multiples[module_bits(memory, module_upper_01, 160, 0x18) >> 3];
}

#define FURTHER_PAGES (MODULE_PAGE(U1) | MODULE_PAGE(U2) | MODULE_PAGE(U11) | MODULE_PAGE(U13))

static const struct module_condition conditions[] = {
    /* The bit of flat memory, and that of pages for diagnostics. */
    {FURTHER_PAGES, LO, 2, 0x80, 0, 0},
    {MODULE_PAGE(U13), U1, 142, 0x20, 0x20, 0x20},
    {MODULE_KIND(module_temperature), U1, 159, 1, 1, 1},
    {MODULE_KIND(module_voltage), U1, 159, 2, 2, 2},
    {MODULE_KIND(module_bias), U1, 160, 1, 1, 1},
    {MODULE_KIND(module_tx_power), U1, 160, 2, 2, 2},
    {MODULE_KIND(module_rx_power), U1, 160, 4, 4, 4},
    /* The bits of lanes that the module doesn't have. */
    {MODULE_KIND(module_lane_1 + 0), U0, 210, 1 << 0, 0, 0},
    {MODULE_KIND(module_lane_1 + 1), U0, 210, 1 << 1, 0, 0},
    {MODULE_KIND(module_lane_1 + 2), U0, 210, 1 << 2, 0, 0},
    {MODULE_KIND(module_lane_1 + 3), U0, 210, 1 << 3, 0, 0},
    {MODULE_KIND(module_lane_1 + 4), U0, 210, 1 << 4, 0, 0},
    {MODULE_KIND(module_lane_1 + 5), U0, 210, 1 << 5, 0, 0},
    {MODULE_KIND(module_lane_1 + 6), U0, 210, 1 << 6, 0, 0},
    {MODULE_KIND(module_lane_1 + 7), U0, 210, 1 << 7, 0, 0},
    {0},
};

#define FLAGS(name, offset, kind)                                                                  \
    {name "HighAlarmFlag", U11, offset, 1, kind},                                                  \
        {name "LowAlarmFlag", U11, (offset) + 1, 1, kind},                                         \
        {name "HighWarningFlag", U11, (offset) + 2, 1, kind},                                      \
    {                                                                                              \
        name "LowWarningFlag", U11, (offset) + 3, 1, kind                                          \
    }

/* The numbers of lanes are those of the application that the module lists first. */
static const struct module_field fields[] = {
    {"Identifier", LO, 0, 1, module_plain},
    {"CmisRevision", LO, 1, 1, module_text},
    {"MemoryModel", LO, 2, 1, module_top_bit},
    {"StatusCode", LO, 3, 1, module_plain},
    {"Vcc_Temperature_Flag", LO, 9, 1, module_plain},
    {"HostLaneCount", LO, 88, 1, module_high_digit},
    {"MediaLaneCount", LO, 88, 1, module_low_digit},
    {"VendorName", U0, 129, 16, module_text},
    {"Vendor_PN", U0, 148, 16, module_text},
    {"Vendor_Rev", U0, 164, 2, module_text},
    {"Vendor_SN", U0, 166, 16, module_text},
    {"ExtIdentifier", U0, 200, 1, module_plain},
    {"InterfaceType", U0, 203, 1, module_plain},
    {"LaserWavelength", U1, 138, 2, module_wavelength},
    {"LaserWavelengthTolerance", U1, 140, 2, module_tolerance},
    {"SupportedPages", U1, 142, 1, module_plain},
    {"DataPathState", U11, 128, 4, module_lowest_first},
    {"LaneOutputStatusRX", U11, 132, 1, module_plain},
    {"LaneOutputStatusTX", U11, 133, 1, module_plain},
    FLAGS("TXPower", 139, module_tx_power),
    FLAGS("TXBias", 143, module_bias),
    FLAGS("RXPower", 149, module_rx_power),
    {"LoopbackCaps", U13, 128, 1, module_plain},
    {"DiagMeasurementsCaps", U13, 129, 1, module_plain},
    {"DiagReportingCaps", U13, 130, 1, module_plain},
    {"PatternGenAndCheckingLocation", U13, 131, 1, module_plain},
    {"PatternGenCapsHostSide", U13, 132, 2, module_lowest_first},
    {"PatternGenCapsMediaSide", U13, 134, 2, module_lowest_first},
    {0},
};

const struct module_standard module_qsfpd = {
    .identifiers = "\x18\x19\x1B\x1E\x1F\x20", /* QSFP-DD, OSFP, DSFP, and smaller ones with CMIS */
    .pages = MODULE_PAGE(LO) | MODULE_PAGE(U0) | FURTHER_PAGES,
    .conditions = conditions,
    .fields = fields,
    .calibrate = calibrate,
    .lanes = 8,
    .measurements =
        {
            [module_temperature] = {LO, 14, U2, 128},
            [module_voltage] = {LO, 16, U2, 136},
            [module_bias] = {U11, 170, U2, 184},
            [module_tx_power] = {U11, 154, U2, 176},
            [module_rx_power] = {U11, 186, U2, 192},
        },
};
