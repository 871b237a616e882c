/*
 * A pluggable module describes itself in pages of memory, which one of three standards lays out:
 * SFF-8472, SFF-8636 or CMIS. Each has tables (module_sfp.c, module_qsfp.c, module_qsfpd.c) with
 * the places in the module's memory: of five measurements, of which all have readings, limits and
 * statuses, and of each other property. Here and there is no input and no output: bytes come in,
 * and object_put_* gets values.
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
    page_lower,
    page_00,
    page_01,
    page_02,
    page_03,
    page_11,
    page_13,
    page_A2, /* the lower page at an SFP's second address */
    page_count,
    page_size = 128
};
#define MODULE_PAGE(page) (1U << (page) << 24)

struct module_memory
{
    uint8_t bytes[page_count][page_size];
    uint32_t pages; /* those that were read, as bits */
};

/* What the bytes of a field are. */
enum module_kind
{
    module_plain, /* a number */
    module_text,
    module_lowest_first, /* a number whose first byte is the lowest, not the highest */
    module_high_digit,
    module_low_digit,
    module_top_bit, /* this host's code: 1 if it is off and 2 if it is on */
    module_laser,
    module_wavelength,
    module_tolerance,
    module_flags,
    module_temperature, /* the first measurement, or flags about it */
    module_voltage,
    module_bias, /* the first one that each lane has */
    module_tx_power,
    module_rx_power,
    module_lane_1 /* lane 2 is the next */
};
#define MODULE_KIND(kind) (1U << (kind))
#define MODULE_MEASUREMENTS (MODULE_KIND(module_lane_1) - MODULE_KIND(module_temperature))

struct module_field
{
    const char* member;
    uint8_t page;
    uint8_t offset;
    uint8_t size; /* in bytes; of a number 4 at most, and of a text 16 at most */
    uint8_t kind;
};

/* Two bytes are a reading, and those of further lanes follow. Four limits follow each other, too:
 * high alarm, low alarm, high warning and low warning. */
struct module_measurement
{
    uint8_t page;
    uint8_t offset;
    uint8_t limits_page;
    uint8_t limits_offset;
};

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
    const char* identifiers;                   /* what the first byte of such a module is */
    uint32_t pages;                            /* that such a module may have, as bits */
    const struct module_condition* conditions; /* these end with an empty one */
    const struct module_field* fields;         /* and these */
    /* Corrects a measurement as the module says; NaN if it can't. Null if there is no need to. */
    double (*calibrate)(const struct module_memory* memory, enum module_kind kind, double raw);
    unsigned int lanes; /* at most */
    /* Where page 00 has the bits of the lanes that a module lacks; 0 if nowhere. */
    uint8_t absent_lanes;
    struct module_measurement measurements[module_lane_1];
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
