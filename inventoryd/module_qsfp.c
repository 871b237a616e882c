/* SFF-8636: four lanes. */
#include "module.h"

static const struct module_condition conditions[] = {
    {MODULE_PAGE(page_03), page_lower, 2, 0x04, 0, 0}, /* the bit of flat memory */
    {MODULE_MEASUREMENTS, page_lower, 2, 0x01, 0, 0},  /* the bit of data that isn't ready */
    /* The technologies from 0xA0 on are copper's. */
    {MODULE_KIND(module_wavelength) | MODULE_KIND(module_tolerance) | MODULE_KIND(module_bias) |
         MODULE_KIND(module_tx_power) | MODULE_KIND(module_rx_power),
     page_00, 147, 0xF0, 0, 0x90},
    {MODULE_KIND(module_tx_power), page_00, 220, 0x04, 0x04, 0x04},
    {0},
};

static const struct module_field fields[] = {
    {"Identifier", page_lower, 0, 1, module_plain},
    {"StatusCode", page_lower, 2, 1, module_plain},
    {"TemperatureFlags", page_lower, 6, 1, module_temperature},
    {"VccFlags", page_lower, 7, 1, module_voltage},
    {"Rx1Rx2PowerFlags", page_lower, 9, 1, module_rx_power},
    {"Rx3Rx4PowerFlags", page_lower, 10, 1, module_rx_power},
    {"Tx1Tx2BiasFlags", page_lower, 11, 1, module_bias},
    {"Tx3Tx4BiasFlags", page_lower, 12, 1, module_bias},
    {"Tx1Tx2PowerFlags", page_lower, 13, 1, module_tx_power},
    {"Tx3Tx4PowerFlags", page_lower, 14, 1, module_tx_power},
    {"ExtIdentifier", page_00, 129, 1, module_plain},
    {"InterfaceType", page_00, 130, 1, module_plain},
    {"VendorName", page_00, 148, 16, module_text},
    {"Vendor_PN", page_00, 168, 16, module_text},
    {"Vendor_Rev", page_00, 184, 2, module_text},
    {"LaserWavelength", page_00, 186, 2, module_wavelength},
    {"LaserWavelengthTolerance", page_00, 188, 2, module_tolerance},
    {"Vendor_SN", page_00, 196, 16, module_text},
    {0},
};

const struct module_standard module_qsfp = {
    .identifiers = "\x0C\x0D\x11", /* QSFP, QSFP+, QSFP28 */
    .pages = MODULE_PAGE(page_lower) | MODULE_PAGE(page_00) | MODULE_PAGE(page_03),
    .conditions = conditions,
    .fields = fields,
    .lanes = 4,
    .measurements =
        {
            [module_temperature] = {page_lower, 22, page_03, 128},
            [module_voltage] = {page_lower, 26, page_03, 144},
            [module_bias] = {page_lower, 42, page_03, 184},
            [module_tx_power] = {page_lower, 50, page_03, 192},
            [module_rx_power] = {page_lower, 34, page_03, 176},
        },
};
