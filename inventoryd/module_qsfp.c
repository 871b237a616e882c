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
    {0},
};

static const struct module_field fields[] = {
    {"Identifier", LO, 0, 1, module_plain},
    {"StatusCode", LO, 2, 1, module_plain},
    {"TemperatureFlags", LO, 6, 1, module_temperature},
    {"VccFlags", LO, 7, 1, module_voltage},
    {"Rx1Rx2PowerFlags", LO, 9, 1, module_rx_power},
    {"Rx3Rx4PowerFlags", LO, 10, 1, module_rx_power},
    {"Tx1Tx2BiasFlags", LO, 11, 1, module_bias},
    {"Tx3Tx4BiasFlags", LO, 12, 1, module_bias},
    {"Tx1Tx2PowerFlags", LO, 13, 1, module_tx_power},
    {"Tx3Tx4PowerFlags", LO, 14, 1, module_tx_power},
    {"ExtIdentifier", U0, 129, 1, module_plain},
    {"InterfaceType", U0, 130, 1, module_plain},
    {"VendorName", U0, 148, 16, module_text},
    {"Vendor_PN", U0, 168, 16, module_text},
    {"Vendor_Rev", U0, 184, 2, module_text},
    {"LaserWavelength", U0, 186, 2, module_wavelength},
    {"LaserWavelengthTolerance", U0, 188, 2, module_tolerance},
    {"Vendor_SN", U0, 196, 16, module_text},
    {0},
};

const struct module_standard module_qsfp = {
    .identifiers = "\x0C\x0D\x11", /* QSFP, QSFP+, QSFP28 */
    .pages = MODULE_PAGE(LO) | MODULE_PAGE(U0) | MODULE_PAGE(U3),
    .conditions = conditions,
    .fields = fields,
    .lanes = 4,
    .measurements =
        {
            [module_temperature] = {LO, 22, U3, 128},
            [module_voltage] = {LO, 26, U3, 144},
            [module_bias] = {LO, 42, U3, 184},
            [module_tx_power] = {LO, 50, U3, 192},
            [module_rx_power] = {LO, 34, U3, 176},
        },
};
