/*
 * A pluggable module describes itself in pages of memory, which one of three standards lays out:
 * SFF-8472, SFF-8636 or CMIS. Each has a table (module_sfp.c, module_qsfp.c, module_qsfpd.c) with a
 * row for each property that has a place in the module's memory. Here and there is no input and no
 * output: bytes come in, and object_put_* gets values.
 *
 * Readings and limits are in degrees Celsius, volts, milliamperes, milliwatts and nanometres. Those
 * in integers are rounded to degrees, 0.01 milliamperes and 0.1 microwatts.
 */
#ifndef MODULE_H
#define MODULE_H

#include "object.h"

/* In the order in which they are read, as the first ones say whether there are others. */
enum module_page
{
    module_lower,
    module_upper_00,
    module_upper_01,
    module_upper_02,
    module_upper_03,
    module_upper_11,
    module_upper_13,
    module_diagnostics, /* the lower page at an SFP's second address */
    module_page_count,
    module_page_size = 128
};
#define MODULE_PAGE(page) (1U << (page) << 24)

struct module_memory
{
    uint8_t bytes[module_page_count][module_page_size];
    uint32_t pages; /* those that were read, as bits */
};

/* What the bytes of a field are. Of a measurement, two bytes are a reading or a limit, or its
 * status if the property is a byte; one byte is flags. */
enum module_kind
{
    module_plain,        /* a number or a text */
    module_lowest_first, /* a number whose first byte is the lowest, not the highest */
    module_high_digit,
    module_low_digit,
    module_top_bit, /* this host's code: 1 if it is off and 2 if it is on */
    module_laser,
    module_wavelength,
    module_tolerance,
    module_flags,
    module_temperature, /* the first measurement */
    module_voltage,
    module_bias,
    module_tx_power,
    module_rx_power,
    module_lane_0 /* lane 1 is the next; fields without a lane have 0 instead */
};
#define MODULE_KIND(kind) (1U << (kind))
#define MODULE_MEASUREMENTS (MODULE_KIND(module_lane_0) - MODULE_KIND(module_temperature))

struct module_field
{
    const char* member;
    char type; /* the property's D-Bus type */
    uint8_t page;
    uint8_t offset;
    uint8_t size; /* in bytes; of a number 4 at most, and of a text 16 at most */
    uint8_t kind;
    uint8_t lane; /* of a status, how many lanes there are */
};

/* The rows of a measurement's limits, and of its readings on four lanes. */
#define MODULE_LIMITS(name, warning, high, low, page, offset, kind)                                \
    {name "HighAlarmThreshold", high, page, offset, 2, kind, 0},                                   \
        {name "LowAlarmThreshold", low, page, (offset) + 2, 2, kind, 0},                           \
        {name "High" warning "Threshold", high, page, (offset) + 4, 2, kind, 0},                   \
    {                                                                                              \
        name "Low" warning "Threshold", low, page, (offset) + 6, 2, kind, 0                        \
    }
#define MODULE_LANE(name, lane, value, page, offset, kind)                                         \
    {                                                                                              \
        name #lane value, 'q', page, (offset) + 2 * (lane)-2, 2, kind, lane                        \
    }
#define MODULE_LANES_1_4(name, value, page, offset, kind)                                          \
    MODULE_LANE(name, 1, value, page, offset, kind),                                               \
        MODULE_LANE(name, 2, value, page, offset, kind),                                           \
        MODULE_LANE(name, 3, value, page, offset, kind),                                           \
        MODULE_LANE(name, 4, value, page, offset, kind)

/* What a module has only if some bits of a byte are within limits; an unread byte is 0. */
struct module_condition
{
    uint32_t things; /* kinds, lanes and pages, as bits */
    uint8_t page;
    uint8_t offset;
    uint8_t bits;
    uint8_t least;
    uint8_t most;
};

struct module_standard
{
    const char* identifiers; /* what the first byte of such a module is */
    uint32_t pages;          /* that such a module may have, as bits */
    const struct module_condition* conditions;
    size_t condition_count;
    const struct module_field* fields;
    size_t field_count;
    /* Corrects a measurement as the module says; NaN if it can't. Null if there is no need to. */
    double (*calibrate)(const struct module_memory* memory, enum module_kind kind, double raw);
    uint8_t limits_page;
    uint8_t limits[module_lane_0 - module_temperature]; /* the offset of each measurement's */
};
extern const struct module_standard module_sfp;
extern const struct module_standard module_qsfp;
extern const struct module_standard module_qsfpd;

/* The standard of the module with this lower page; null if it is none of the three. */
const struct module_standard* module_standard_of(const struct module_memory* memory);

/* What the module may have and no condition denies, by the pages that were read. */
uint32_t module_things(const struct module_standard* standard, const struct module_memory* memory);

/* Puts all properties of the table. One that the module has no value for gets its initial value, 0
 * or the empty text, for the case that another module had one. */
void module_put(struct object* object, const struct module_standard* standard,
                const struct module_memory* memory);

/* Overwrites the serial number. */
void module_hide_serial(const struct module_standard* standard, struct module_memory* memory);

/* For the tables. The number of so many bytes, 4 at most; false if their page wasn't read. */
bool module_number(const struct module_memory* memory, enum module_page page, unsigned int offset,
                   unsigned int size, uint32_t* number);

/* Those of the bits that are set in a byte; none if it wasn't read. */
uint8_t module_bits(const struct module_memory* memory, enum module_page page, unsigned int offset,
                    unsigned int bits);

/* A number of 16 bits, with its sign. */
double module_signed(uint32_t raw);

#endif
