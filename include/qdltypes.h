/* SPDX-License-Identifier: MIT */
/* Constants and records that hosts and HW libraries share. Valid C11 and C++17. */
#ifndef QDLTYPES_H
#define QDLTYPES_H

#include <stddef.h>
#include <stdint.h>

/* Geometry of a chip. A device has one or more chips, all of the same kind.
 * Every array of pixels is laid out [chip][y][x], row 0 on top: the pixel at column x, row y of chip c
 * is element c * QDL_CHIP_PIXELS + y * QDL_CHIP_SIDE + x. */
#define QDL_CHIP_SIDE 256
#define QDL_CHIP_PIXELS 65536
/* Bytes that one chip delivers in a read-out: 256 * 256 pixels of 14 bits, and one byte that closes the stream. */
#define QDL_CHIP_STREAM_BYTES 114689
#define QDL_CHIP_DACS 13

/* Bits of the configuration byte of a pixel; 255, all ones, is its default. */
#define QDL_PIXEL_ADJUST_LOW 0x07u  /* threshold adjustment of the low discriminator, 0 to 7 */
#define QDL_PIXEL_ADJUST_HIGH 0x38u /* threshold adjustment of the high discriminator, 0 to 7 */
#define QDL_PIXEL_TEST_BIT 0x40u    /* 0: the pixel takes test pulses */
#define QDL_PIXEL_MASK_BIT 0x80u    /* 1: the pixel may count; 0: it is masked */
#define QDL_PIXEL_DEFAULT 0xFFu

/* Type codes of values. Frames use I16, U32 and DOUBLE; HW info items use all of them. */
enum {
    QDL_TYPE_BOOL = 0,   /* 32 bits, 0 is false, all else true */
    QDL_TYPE_CHAR = 1,   /* 8 bits, shown as a raw character */
    QDL_TYPE_BYTE = 2,   /* handled exactly like QDL_TYPE_CHAR */
    QDL_TYPE_U8 = 3,     /* unsigned, 8 bits */
    QDL_TYPE_I16 = 4,    /* signed, 16 bits */
    QDL_TYPE_U16 = 5,    /* unsigned, 16 bits */
    QDL_TYPE_I32 = 6,    /* signed, 32 bits */
    QDL_TYPE_U32 = 7,    /* unsigned, 32 bits */
    QDL_TYPE_FLOAT = 8,  /* 32 bits */
    QDL_TYPE_DOUBLE = 9, /* 64 bits */
    QDL_TYPE_STRING = 10 /* characters, terminated */
};

/* InfoItem.flags: the value of the item is kept in the configuration file of the device. */
#define QDL_ITEM_STORED 1u

/* One named, typed value that a HW library publishes about its interface.
 * The value is a block of `count` elements without gaps. */
typedef struct InfoItem {
    uint32_t type;    /* QDL_TYPE_..., of the elements */
    int32_t count;    /* number of elements; QDL_TYPE_STRING: capacity in bytes */
    uint32_t flags;   /* QDL_ITEM_STORED or 0 */
    const char* name; /* owned by the HW library */
    void* data;       /* receives the value; owned by the caller, its size in bytes travels beside the record */
} InfoItem;

#ifdef __cplusplus
#define QDL_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define QDL_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

QDL_STATIC_ASSERT(offsetof(InfoItem, type) == 0 && offsetof(InfoItem, count) == 4 && offsetof(InfoItem, flags) == 8,
                  "InfoItem begins with three 32-bit fields");
QDL_STATIC_ASSERT(offsetof(InfoItem, name) == (sizeof(void*) == 8 ? 16 : 12), "InfoItem.name follows them, aligned");
QDL_STATIC_ASSERT(sizeof(InfoItem) == (sizeof(void*) == 8 ? 32 : 20), "InfoItem has no further field");

#endif /* QDLTYPES_H */
