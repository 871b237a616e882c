/* SFF-8636: four lanes. */
#include "module.h"

static uint32_t pages(const struct module_memory* memory)
{
    enum
    {
        flat = 0x04
    };
    const uint32_t pages = 1U << module_lower | 1U << module_upper_00;
    return module_bits(memory, module_lower, 2, flat) ? pages : pages | 1U << module_upper_03;
}

/* From revision 2.8 on a module says whether it measures temperature and voltage. Before, all but
 * passive cables do. No copper cable has a laser. */
static uint32_t kinds(const struct module_memory* memory)
{
    enum
    {
        not_ready = 0x01,
        revision_2_8 = 8,
        temperature = 0x20,
        voltage = 0x10,
        tx_power = 0x04,
        passive_copper = 0xA0,
        active_copper = 0xC0,
        four_lanes = 0x1E << module_lane_0
    };
    const uint8_t technology = module_bits(memory, module_upper_00, 147, 0xF0);
    const uint8_t told = module_bits(memory, module_upper_00, 220, 0xFF);
    const bool tells = module_bits(memory, module_lower, 1, 0xFF) >= revision_2_8;
    const bool is_passive = technology >= passive_copper && technology < active_copper;
    const bool has_laser = technology < passive_copper;
    uint32_t kinds = has_laser ? 1U << module_wavelength | 1U << module_tolerance : 0;
    if (module_bits(memory, module_lower, 2, not_ready))
    {
        return kinds;
    }
    kinds |= (tells ? (told & temperature) != 0 : !is_passive) ? 1U << module_temperature : 0;
    kinds |= (tells ? (told & voltage) != 0 : !is_passive) ? 1U << module_voltage : 0;
    kinds |= has_laser ? 1U << module_bias | 1U << module_rx_power : 0;
    kinds |= has_laser && (told & tx_power) ? 1U << module_tx_power : 0;
    return kinds | four_lanes;
}

enum
{
    LO = module_lower,
    U0 = module_upper_00,
    U3 = module_upper_03
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
    pages, kinds, NULL, U3, {128, 144, 184, 192, 176}, fields, sizeof fields / sizeof *fields,
};
