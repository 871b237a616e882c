#include "module.h"

#include <math.h>
#include <stdio.h>
#include <string.h>

bool module_number(const struct module_memory* memory, enum module_page page, unsigned int offset,
                   unsigned int size, uint32_t* number)
{
    *number = 0;
    for (unsigned int i = offset; i < offset + size; ++i)
    {
        /* The standards count the bytes of an upper page from 128. */
        *number = *number << 8 | memory->bytes[page][i % page_size];
    }
    return (memory->pages & MODULE_PAGE(page)) != 0;
}

uint8_t module_bits(const struct module_memory* memory, enum module_page page, unsigned int offset,
                    unsigned int bits)
{
    uint32_t number = 0;
    return module_number(memory, page, offset, 1, &number) ? (uint8_t)(number & bits) : 0;
}

double module_signed(uint32_t raw)
{
    return raw > INT16_MAX ? (double)raw - (UINT16_MAX + 1) : raw;
}

const struct module_standard* module_standard_of(const struct module_memory* memory)
{
    static const struct module_standard* const standards[] = {&module_sfp, &module_qsfp,
                                                              &module_qsfpd, NULL};
    const struct module_standard* const* each = standards;
    const uint8_t identifier = module_bits(memory, page_lower, 0, 0xFF);
    while (*each != NULL && (identifier == 0 || strchr((*each)->identifiers, identifier) == NULL))
    {
        ++each;
    }
    return *each;
}

uint32_t module_things(const struct module_standard* standard, const struct module_memory* memory)
{
    uint32_t things = (MODULE_PAGE(0) - 1) | standard->pages;
    for (const struct module_condition* each = standard->conditions; each->things != 0; ++each)
    {
        const uint8_t bits = module_bits(memory, each->page, each->offset, each->bits);
        things &= bits >= each->least && bits <= each->most ? UINT32_MAX : ~each->things;
    }
    if (standard->absent_lanes != 0)
    {
        const uint32_t lanes = module_bits(memory, page_00, standard->absent_lanes, 0xFF);
        things &= ~(lanes << module_lane_1);
    }
    return things;
}

void module_hide_serial(const struct module_standard* standard, struct module_memory* memory)
{
    const struct module_field* field = standard->fields;
    while (strcmp(field->member, "Vendor_SN") != 0)
    {
        ++field;
    }
    memset(&memory->bytes[field->page][field->offset % page_size], 0, field->size);
}

/* ASCII, filled up with spaces or zeros; anything else isn't programmed. One byte is a revision. */
static void put_text(struct object* object, const struct module_memory* memory,
                     const struct module_field* field)
{
    char text[17] = "";
    size_t length = 0;
    uint32_t byte = 0;
    for (unsigned int i = 0; i < field->size; ++i)
    {
        const bool is_read = module_number(memory, field->page, field->offset + i, 1, &byte);
        if (field->size == 1 && is_read)
        {
            length = (size_t)snprintf(text, sizeof text, "%u.%u", byte >> 4, byte & 0xF);
            break;
        }
        if (!is_read || (byte != 0 && (byte < ' ' || byte > '~')))
        {
            length = 0;
            break;
        }
        text[i] = (char)(byte != 0 ? byte : ' ');
        length = text[i] != ' ' ? i + 1U : length;
    }
    text[length] = '\0';
    object_put_string(object, field->member, text);
}

/* This host's codes of a reading's place among its limits. Of several lanes the worst counts. */
enum state
{
    state_unknown, /* also if the limits are none, as in memory that isn't programmed */
    state_normal,
    state_low_warning,
    state_high_warning,
    state_low_alarm,
    state_high_alarm
};

static enum state state_of(const struct module_measurement* place,
                           const struct module_memory* memory, enum module_kind kind,
                           unsigned int lane)
{
    double levels[5]; /* high alarm, low alarm, high warning, low warning, and the reading */
    for (unsigned int i = 0; i < 5; ++i)
    {
        uint32_t raw = 0;
        if (!module_number(memory, i < 4 ? place->limits_page : place->page,
                           i < 4 ? place->limits_offset + 2 * i : place->offset + 2 * lane, 2,
                           &raw))
        {
            return state_unknown;
        }
        levels[i] = kind == module_temperature ? module_signed(raw) : raw;
    }
    return levels[0] <= levels[1]  ? state_unknown
           : levels[4] > levels[0] ? state_high_alarm
           : levels[4] < levels[1] ? state_low_alarm
           : levels[4] > levels[2] ? state_high_warning
           : levels[4] < levels[3] ? state_low_warning
                                   : state_normal;
}

/* A number of two bytes in the unit that the property's type says, 0 if that can't be told. */
static double measure(const struct module_standard* standard, const struct module_memory* memory,
                      enum module_kind kind, uint32_t raw, char type)
{
    /* How many steps of the number make the unit of doubles, and that of integers. */
    static const double steps[module_lane_1][2] = {
        [module_laser] = {1, 1},        [module_wavelength] = {20, 1},
        [module_tolerance] = {200, 1},  [module_temperature] = {256, 256},
        [module_voltage] = {10000, 1},  [module_bias] = {500, 5},
        [module_tx_power] = {10000, 1}, [module_rx_power] = {10000, 1},
    };
    const bool is_real = type == 'd';
    double number = kind == module_temperature ? module_signed(raw) : raw;
    number = standard->calibrate != NULL ? standard->calibrate(memory, kind, number) : number;
    number /= steps[kind][is_real ? 0 : 1];
    number = is_real ? number : round(number);
    const bool fits = is_real ? isfinite(number)
                              : number >= (type == 'n' ? INT16_MIN : 0) &&
                                    number <= (type == 'n' ? INT16_MAX : UINT16_MAX);
    return fits ? number : 0;
}

static double decode(const struct module_standard* standard, const struct module_memory* memory,
                     const struct module_field* field, uint32_t raw, char type)
{
    switch (field->kind)
    {
    case module_lowest_first:
        raw = raw >> 24 | (raw >> 8 & 0xFF00) | (raw << 8 & 0xFF0000) | raw << 24;
        return raw >> (32 - 8 * field->size);
    case module_high_digit:
        return raw >> 4;
    case module_low_digit:
        return raw & 0xF;
    case module_top_bit:
        return 1 + (raw >> 7);
    default:
        return field->size == 2 ? measure(standard, memory, field->kind, raw, type) : raw;
    }
}

/* 0 if it wasn't read. */
static void put_number(struct object* object, const struct module_standard* standard,
                       const struct module_memory* memory, const struct module_field* field,
                       bool is_there)
{
    uint32_t raw = 0;
    is_there = module_number(memory, field->page, field->offset, field->size, &raw) && is_there;
    const char type = object_type(object, field->member);
    object_put_real(object, field->member,
                    is_there ? decode(standard, memory, field, raw, type) : 0);
}

/* A reading's name has the number of the lane in it, if the standard has several. */
static void put_measurement(struct object* object, const struct module_standard* standard,
                            const struct module_memory* memory, enum module_kind kind,
                            uint32_t things)
{
    static const struct
    {
        const char* reading[2]; /* before and behind the number */
        const char* limit;
        const char* warning;
        const char* status;
    } names[module_lane_1] = {
        [module_temperature] = {{"Temp", "Value"}, "Temp", "Warning", "TemperatureStatus"},
        [module_voltage] = {{"Voltage", "Value"}, "Vcc", "Warn", "VoltageStatus"},
        [module_bias] = {{"TX", "BiasCurrentValue"}, "TxBias", "Warn", "TxBiasCurrentStatus"},
        [module_tx_power] = {{"TX", "OutputPowerValue"}, "TxPower", "Warn", "TxOutputPowerStatus"},
        [module_rx_power] = {{"RX", "InputPowerValue"}, "RxPower", "Warn", "RxInputPowerStatus"},
    };
    const struct module_measurement* place = &standard->measurements[kind];
    const unsigned int lanes = kind < module_bias ? 1 : standard->lanes;
    const bool is_measured = (things >> kind & 1) != 0;
    enum state worst = state_unknown;
    char member[64];
    struct module_field field = {member, place->page, place->offset, 2, (uint8_t)kind};
    for (unsigned int lane = 0; lane < lanes; ++lane, field.offset += 2)
    {
        char number[2] = {(char)(lanes > 1 ? '1' + lane : 0), '\0'};
        const bool is_there =
            is_measured && (lanes == 1 || (things >> (module_lane_1 + lane) & 1) != 0);
        const enum state state = is_there ? state_of(place, memory, kind, lane) : state_unknown;
        worst = state > worst ? state : worst;
        snprintf(member, sizeof member, "%s%s%s", names[kind].reading[0], number,
                 names[kind].reading[1]);
        put_number(object, standard, memory, &field, is_there);
    }
    object_put_number(object, names[kind].status, worst);
    field.page = place->limits_page;
    field.offset = place->limits_offset;
    for (unsigned int limit = 0; limit < 4; ++limit, field.offset += 2)
    {
        snprintf(member, sizeof member, "%s%s%sThreshold", names[kind].limit,
                 limit % 2 == 0 ? "High" : "Low", limit < 2 ? "Alarm" : names[kind].warning);
        put_number(object, standard, memory, &field, is_measured);
    }
}

void module_put(struct object* object, const struct module_standard* standard,
                const struct module_memory* memory)
{
    const uint32_t things = module_things(standard, memory);
    for (const struct module_field* each = standard->fields; each->member != NULL; ++each)
    {
        if (each->kind == module_text)
        {
            put_text(object, memory, each);
        }
        else
        {
            put_number(object, standard, memory, each, (things >> each->kind & 1) != 0);
        }
    }
    for (unsigned int kind = module_temperature; kind < module_lane_1; ++kind)
    {
        put_measurement(object, standard, memory, kind, things);
    }
}
