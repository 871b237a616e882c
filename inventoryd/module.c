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
        *number = *number << 8 | memory->bytes[page][i % module_page_size];
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
    const uint8_t identifier = module_bits(memory, module_lower, 0, 0xFF);
    while (*each != NULL && (identifier == 0 || strchr((*each)->identifiers, identifier) == NULL))
    {
        ++each;
    }
    return *each;
}

uint32_t module_things(const struct module_standard* standard, const struct module_memory* memory)
{
    uint32_t things = (MODULE_PAGE(0) - 1) | standard->pages;
    for (const struct module_condition* each = standard->conditions;
         each < standard->conditions + standard->condition_count; ++each)
    {
        const uint8_t bits = module_bits(memory, each->page, each->offset, each->bits);
        things &= bits >= each->least && bits <= each->most ? UINT32_MAX : ~each->things;
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
    memset(&memory->bytes[field->page][field->offset % module_page_size], 0, field->size);
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

static enum state state_of(const struct module_standard* standard,
                           const struct module_memory* memory, const struct module_field* field,
                           unsigned int lane)
{
    const unsigned int limits = standard->limits[field->kind - module_temperature];
    double levels[5]; /* high alarm, low alarm, high warning, low warning, and the reading */
    for (unsigned int i = 0; i < 5; ++i)
    {
        uint32_t raw = 0;
        if (!module_number(memory, i < 4 ? standard->limits_page : field->page,
                           i < 4 ? limits + 2 * i : field->offset + 2 * lane, 2, &raw))
        {
            return state_unknown;
        }
        levels[i] = field->kind == module_temperature ? module_signed(raw) : raw;
    }
    return levels[0] <= levels[1]  ? state_unknown
           : levels[4] > levels[0] ? state_high_alarm
           : levels[4] < levels[1] ? state_low_alarm
           : levels[4] > levels[2] ? state_high_warning
           : levels[4] < levels[3] ? state_low_warning
                                   : state_normal;
}

static double measure(const struct module_standard* standard, const struct module_memory* memory,
                      const struct module_field* field, uint32_t raw)
{
    /* How many steps of the number make the unit of doubles, and that of integers. */
    static const double steps[module_lane_0][2] = {
        [module_laser] = {1, 1},        [module_wavelength] = {20, 1},
        [module_tolerance] = {200, 1},  [module_temperature] = {256, 256},
        [module_voltage] = {10000, 1},  [module_bias] = {500, 5},
        [module_tx_power] = {10000, 1}, [module_rx_power] = {10000, 1},
    };
    const bool is_real = field->type == 'd';
    double number = field->kind == module_temperature ? module_signed(raw) : raw;
    number =
        standard->calibrate != NULL ? standard->calibrate(memory, field->kind, number) : number;
    number /= steps[field->kind][is_real ? 0 : 1];
    number = is_real ? number : round(number);
    const bool fits = is_real ? isfinite(number)
                              : number >= (field->type == 'n' ? INT16_MIN : 0) &&
                                    number <= (field->type == 'n' ? INT16_MAX : UINT16_MAX);
    return fits ? number : 0;
}

/* 0 if it wasn't read. */
static double read_number(const struct module_standard* standard,
                          const struct module_memory* memory, const struct module_field* field)
{
    uint32_t raw = 0;
    if (!module_number(memory, field->page, field->offset, field->size, &raw))
    {
        return 0;
    }
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
        return field->size == 2 ? measure(standard, memory, field, raw) : raw;
    }
}

void module_put(struct object* object, const struct module_standard* standard,
                const struct module_memory* memory)
{
    const uint32_t kinds = module_things(standard, memory);
    const uint32_t lanes = kinds >> module_lane_0;
    for (const struct module_field* each = standard->fields;
         each < standard->fields + standard->field_count; ++each)
    {
        if (each->type == 's')
        {
            put_text(object, memory, each);
            continue;
        }
        double number = 0;
        if ((kinds >> each->kind & 1) != 0 && each->type == 'y' && each->size == 2)
        {
            for (unsigned int lane = 0; lane < each->lane; ++lane)
            {
                const double state = each->lane == 1 || (lanes >> (lane + 1) & 1) != 0
                                         ? state_of(standard, memory, each, lane)
                                         : state_unknown;
                number = state > number ? state : number;
            }
        }
        else if ((kinds >> each->kind & 1) != 0 && (lanes >> each->lane & 1) != 0)
        {
            number = read_number(standard, memory, each);
        }
        object_put_real(object, each->member, number);
    }
}
