// libTavrinCommon: every public header of the library.
#ifndef TAVRIN_COMMON_H
#define TAVRIN_COMMON_H

#include "TavrinExport.h"
#include "TavrinParams.h"
#include "TavrinImage.h"
#include "TavrinFom.h"
#include "TavrinEncode.h"
#include "TavrinDetect.h"
#include "TavrinDebug.h"

#endif
