/* SFF-8636: four lanes. */
#include "module.h"

enum
{
    LO = module_lower,
    U0 = module_upper_00,
    U3 = module_upper_03
};

static const struct module_condition conditions[] = {
    {MODULE_PAGE(U3), LO, 2, 0x04, 0, 0},     /* the bit of flat memory */
    {MODULE_MEASUREMENTS, LO, 2, 0x01, 0, 0}, /* the bit of data that isn't ready */
    /* The technologies from 0xA0 on are copper's. */
    {MODULE_KIND(module_wavelength) | MODULE_KIND(module_tolerance) | MODULE_KIND(module_bias) |
         MODULE_KIND(module_tx_power) | MODULE_KIND(module_rx_power),
     U0, 147, 0xF0, 0, 0x90},
    {MODULE_KIND(module_tx_power), U0, 220, 0x04, 0x04, 0x04},
};

static const struct module_field fields[] = {
    {"Identifier", 'y', LO, 0, 1, module_plain, 0},
    {"StatusCode", 'y', LO, 2, 1, module_plain, 0},
    {"TemperatureFlags", 'y', LO, 6, 1, module_temperature, 0},
    {"VccFlags", 'y', LO, 7, 1, module_voltage, 0},
    {"Rx1Rx2PowerFlags", 'y', LO, 9, 1, module_rx_power, 0},
    {"Rx3Rx4PowerFlags", 'y', LO, 10, 1, module_rx_power, 0},
    {"Tx1Tx2BiasFlags", 'y', LO, 11, 1, module_bias, 0},
    {"Tx3Tx4BiasFlags", 'y', LO, 12, 1, module_bias, 0},
    {"Tx1Tx2PowerFlags", 'y', LO, 13, 1, module_tx_power, 0},
    {"Tx3Tx4PowerFlags", 'y', LO, 14, 1, module_tx_power, 0},
    {"TempValue", 'd', LO, 22, 2, module_temperature, 0},
    {"VoltageValue", 'd', LO, 26, 2, module_voltage, 0},
    MODULE_LANES_1_4("RX", "InputPowerValue", LO, 34, module_rx_power),
    MODULE_LANES_1_4("TX", "BiasCurrentValue", LO, 42, module_bias),
    MODULE_LANES_1_4("TX", "OutputPowerValue", LO, 50, module_tx_power),
    {"ExtIdentifier", 'y', U0, 129, 1, module_plain, 0},
    {"InterfaceType", 'y', U0, 130, 1, module_plain, 0},
    {"VendorName", 's', U0, 148, 16, module_plain, 0},
    {"Vendor_PN", 's', U0, 168, 16, module_plain, 0},
    {"Vendor_Rev", 's', U0, 184, 2, module_plain, 0},
    {"LaserWavelength", 'd', U0, 186, 2, module_wavelength, 0},
    {"LaserWavelengthTolerance", 'd', U0, 188, 2, module_tolerance, 0},
    {"Vendor_SN", 's', U0, 196, 16, module_plain, 0},
    MODULE_LIMITS("Temp", "Warning", 'q', 'd', U3, 128, module_temperature),
    MODULE_LIMITS("Vcc", "Warn", 'd', 'd', U3, 144, module_voltage),
    MODULE_LIMITS("RxPower", "Warn", 'd', 'd', U3, 176, module_rx_power),
    MODULE_LIMITS("TxBias", "Warn", 'd', 'd', U3, 184, module_bias),
    MODULE_LIMITS("TxPower", "Warn", 'd', 'd', U3, 192, module_tx_power),
    {"TemperatureStatus", 'y', LO, 22, 2, module_temperature, 1},
    {"VoltageStatus", 'y', LO, 26, 2, module_voltage, 1},
    {"TxBiasCurrentStatus", 'y', LO, 42, 2, module_bias, 4},
    {"TxOutputPowerStatus", 'y', LO, 50, 2, module_tx_power, 4},
    {"RxInputPowerStatus", 'y', LO, 34, 2, module_rx_power, 4},
};

const struct module_standard module_qsfp = {
    .identifiers = "\x0C\x0D\x11", /* QSFP, QSFP+, QSFP28 */
    .pages = MODULE_PAGE(LO) | MODULE_PAGE(U0) | MODULE_PAGE(U3),
    .conditions = conditions,
    .condition_count = sizeof conditions / sizeof *conditions,
    .fields = fields,
    .field_count = sizeof fields / sizeof *fields,
    .limits_page = U3,
    .limits = {128, 144, 184, 192, 176},
};
