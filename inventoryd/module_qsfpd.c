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
    {MODULE_KIND(module_lane_0 + 1), U0, 210, 1 << 0, 0, 0},
    {MODULE_KIND(module_lane_0 + 2), U0, 210, 1 << 1, 0, 0},
    {MODULE_KIND(module_lane_0 + 3), U0, 210, 1 << 2, 0, 0},
    {MODULE_KIND(module_lane_0 + 4), U0, 210, 1 << 3, 0, 0},
    {MODULE_KIND(module_lane_0 + 5), U0, 210, 1 << 4, 0, 0},
    {MODULE_KIND(module_lane_0 + 6), U0, 210, 1 << 5, 0, 0},
    {MODULE_KIND(module_lane_0 + 7), U0, 210, 1 << 6, 0, 0},
    {MODULE_KIND(module_lane_0 + 8), U0, 210, 1 << 7, 0, 0},
};

#define LANES(name, value, page, offset, kind)                                                     \
    MODULE_LANES_1_4(name, value, page, offset, kind),                                             \
        MODULE_LANE(name, 5, value, page, offset, kind),                                           \
        MODULE_LANE(name, 6, value, page, offset, kind),                                           \
        MODULE_LANE(name, 7, value, page, offset, kind),                                           \
        MODULE_LANE(name, 8, value, page, offset, kind)
#define FLAGS(name, offset, kind)                                                                  \
    {name "HighAlarmFlag", 'y', U11, offset, 1, kind, 0},                                          \
        {name "LowAlarmFlag", 'y', U11, (offset) + 1, 1, kind, 0},                                 \
        {name "HighWarningFlag", 'y', U11, (offset) + 2, 1, kind, 0},                              \
    {                                                                                              \
        name "LowWarningFlag", 'y', U11, (offset) + 3, 1, kind, 0                                  \
    }

/* The numbers of lanes are those of the application that the module lists first. */
static const struct module_field fields[] = {
    {"Identifier", 'y', LO, 0, 1, module_plain, 0},
    {"CmisRevision", 's', LO, 1, 1, module_plain, 0},
    {"MemoryModel", 'y', LO, 2, 1, module_top_bit, 0},
    {"StatusCode", 'y', LO, 3, 1, module_plain, 0},
    {"Vcc_Temperature_Flag", 'y', LO, 9, 1, module_plain, 0},
    {"TempValue", 'd', LO, 14, 2, module_temperature, 0},
    {"VoltageValue", 'd', LO, 16, 2, module_voltage, 0},
    {"HostLaneCount", 'y', LO, 88, 1, module_high_digit, 0},
    {"MediaLaneCount", 'y', LO, 88, 1, module_low_digit, 0},
    {"VendorName", 's', U0, 129, 16, module_plain, 0},
    {"Vendor_PN", 's', U0, 148, 16, module_plain, 0},
    {"Vendor_Rev", 's', U0, 164, 2, module_plain, 0},
    {"Vendor_SN", 's', U0, 166, 16, module_plain, 0},
    {"ExtIdentifier", 'y', U0, 200, 1, module_plain, 0},
    {"InterfaceType", 'y', U0, 203, 1, module_plain, 0},
    {"LaserWavelength", 'd', U1, 138, 2, module_wavelength, 0},
    {"LaserWavelengthTolerance", 'd', U1, 140, 2, module_tolerance, 0},
    {"SupportedPages", 'y', U1, 142, 1, module_plain, 0},
    MODULE_LIMITS("Temp", "Warning", 'q', 'n', U2, 128, module_temperature),
    MODULE_LIMITS("Vcc", "Warn", 'd', 'd', U2, 136, module_voltage),
    MODULE_LIMITS("TxPower", "Warn", 'd', 'd', U2, 176, module_tx_power),
    MODULE_LIMITS("TxBias", "Warn", 'd', 'd', U2, 184, module_bias),
    MODULE_LIMITS("RxPower", "Warn", 'd', 'd', U2, 192, module_rx_power),
    {"DataPathState", 'u', U11, 128, 4, module_lowest_first, 0},
    {"LaneOutputStatusRX", 'y', U11, 132, 1, module_plain, 0},
    {"LaneOutputStatusTX", 'y', U11, 133, 1, module_plain, 0},
    FLAGS("TXPower", 139, module_tx_power),
    FLAGS("TXBias", 143, module_bias),
    FLAGS("RXPower", 149, module_rx_power),
    LANES("TX", "OutputPowerValue", U11, 154, module_tx_power),
    LANES("TX", "BiasCurrentValue", U11, 170, module_bias),
    LANES("RX", "InputPowerValue", U11, 186, module_rx_power),
    {"LoopbackCaps", 'y', U13, 128, 1, module_plain, 0},
    {"DiagMeasurementsCaps", 'y', U13, 129, 1, module_plain, 0},
    {"DiagReportingCaps", 'y', U13, 130, 1, module_plain, 0},
    {"PatternGenAndCheckingLocation", 'y', U13, 131, 1, module_plain, 0},
    {"PatternGenCapsHostSide", 'q', U13, 132, 2, module_lowest_first, 0},
    {"PatternGenCapsMediaSide", 'q', U13, 134, 2, module_lowest_first, 0},
    {"TemperatureStatus", 'y', LO, 14, 2, module_temperature, 1},
    {"VoltageStatus", 'y', LO, 16, 2, module_voltage, 1},
    {"TxBiasCurrentStatus", 'y', U11, 170, 2, module_bias, 8},
    {"TxOutputPowerStatus", 'y', U11, 154, 2, module_tx_power, 8},
    {"RxInputPowerStatus", 'y', U11, 186, 2, module_rx_power, 8},
};

const struct module_standard module_qsfpd = {
    .identifiers = "\x18\x19\x1B\x1E\x1F\x20", /* QSFP-DD, OSFP, DSFP, and smaller ones with CMIS */
    .pages = MODULE_PAGE(LO) | MODULE_PAGE(U0) | FURTHER_PAGES,
    .conditions = conditions,
    .condition_count = sizeof conditions / sizeof *conditions,
    .fields = fields,
    .field_count = sizeof fields / sizeof *fields,
    .calibrate = calibrate,
    .limits_page = U2,
    .limits = {128, 136, 184, 176, 192},
};
