/* The date of a file, which the media library and the home network share. tvapi/cbrowser.h describes the record. */
#ifndef TVAPI_DATE_H
#define TVAPI_DATE_H

#include "tvapi/types.h"

typedef struct {
  UINT16 iyear;
  UINT8 imonth; /* from 1 */
  UINT8 iday;   /* from 1 */
  UINT8 ihour;
  UINT8 iminute;
  UINT8 isecond;
} T_DATE_TIME;

#endif
