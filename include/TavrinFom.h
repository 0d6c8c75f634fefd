// In-memory file store ("file on memory") of libTavrinCommon.
#ifndef TAVRIN_FOM_H
#define TAVRIN_FOM_H

#include "TavrinExport.h"

#endif
