/* Names of the fixed-width integers that the television's middleware and this plugin share. */
#ifndef TVAPI_TYPES_H
#define TVAPI_TYPES_H

#include <stdint.h>

typedef int8_t INT8;
typedef uint8_t UINT8;
typedef int16_t INT16;
typedef uint16_t UINT16;
typedef int32_t INT32;
typedef uint32_t UINT32;
typedef int64_t INT64;
typedef uint64_t UINT64;

#endif
