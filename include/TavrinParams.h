// Request and simulation parameter records of libTavrinCommon, with their
// exported three-row limit tables (row 0 minimum, row 1 default, row 2
// maximum, each laid out exactly like the record).
#ifndef TAVRIN_PARAMS_H
#define TAVRIN_PARAMS_H

#include <cstdint>

#include "TavrinExport.h"

// ---- Request record (296 bytes) ------------------------------------------

struct StructInputParams {
    uint8_t ucModelID;          //   0  device model (21 = A4 type)
    uint8_t ucModeCicFunc;      //   1
    uint8_t ucModeIdxColFunc;   //   2
    uint8_t ucModeEditFunc;     //   3
    uint8_t ucModeResEstFunc;   //   4
    uint8_t ucModeFurtherFunc;  //   5  a further switch, not checked
    uint8_t ucModeAdvAcsFunc;   //   6
    uint8_t ucModeSkewEstFunc;  //   7
    uint8_t ucModeCropEstFunc;  //   8
    uint8_t ucCicModeSwitch;    //   9
    uint8_t ucModeIq;           //  10
    uint8_t ucMview;            //  11  0 also accepted
    uint8_t ucFreqInfo;         //  12
    uint8_t ucAeLevel;          //  13  0 also accepted
    uint8_t ucResEstCompMode;   //  14
    uint8_t ucFeeder;           //  15
    uint8_t ucFeedDirection;    //  16
    uint8_t ucBacking;          //  17
    uint8_t ucRotated;          //  18
    uint8_t ucAlign19;          //  19  alignment byte
    int16_t sAngle;             //  20  hundredths of a degree, not checked
    uint16_t usCosAngle;        //  22  10000 * cos(angle), not checked
    int16_t sSinAngle;          //  24  10000 * sin(angle), not checked
    uint16_t usExtent1;         //  26  not checked
    uint16_t usExtent2;         //  28
    uint16_t usExtent3;         //  30
    uint16_t usExtent4;         //  32
    uint8_t aucReserved[260];   //  34  not read by this library
    uint8_t UseManyCore : 4;    // 294  low 4 bits; upper 4 bits ignored
    uint8_t ucUseManyCoreHigh : 4;
    uint8_t ucReserved295;      // 295  not read
};

// Minimum, default and maximum rows (888 bytes).
TAVRIN_API extern const StructInputParams strInputParams_Limit[3];

// Checks the request fields in their fixed order against rows 0 and 2 of
// strInputParams_Limit. Returns 0 when all pass; -1 at the first illegal
// field, after formatting "Tavrin_Execute <name> illegal[<value>]\n" into
// message (at least 47 bytes; written only on failure).
TAVRIN_API int Tavrin_CheckInputParams(StructInputParams* params, char* message);

// ---- Simulation (tuning) records ------------------------------------------

struct simCIC {  // 11 bytes
    uint8_t ucField1, ucField2, ucField3, ucField4, ucField5, ucField6, ucField7, ucField8;
    uint8_t ucField9, ucField10;
    uint8_t ucField11;
};

struct simResEst {  // 7 bytes
    uint8_t ucField1, ucField2, ucField3, ucField4, ucField5, ucField6, ucField7;
};

struct simCompEst {  // 2 bytes
    uint8_t ucField1, ucField2;
};

struct simAACS {  // 1 byte
    uint8_t ucField1;
};

struct simSkewCropEst {  // 10 bytes, little-endian multi-byte fields
    uint16_t usField1;  // 0
    uint16_t usField2;  // 2
    uint8_t ucField3;   // 4
    uint8_t ucAlign5;   // 5
    int16_t sField4;    // 6  signed
    int16_t sField5;    // 8  signed
};

// Five pointers to caller-owned stage records.
struct SimParams {
    struct simCIC* simCIC;
    struct simResEst* simResEst;
    struct simCompEst* simCompEst;
    struct simAACS* simAACS;
    struct simSkewCropEst* simSkewCropEst;
};

TAVRIN_API extern const simCIC strSimCICParams_Limit[3];
TAVRIN_API extern const simResEst strSimResEstParams_Limit[3];
TAVRIN_API extern const simCompEst strSimCompEstParams_Limit[3];
TAVRIN_API extern const simAACS strSimAACSParams_Limit[3];
TAVRIN_API extern const simSkewCropEst strSimSkewCropParams_Limit[3];

// Copies the default row of each table into the five stage records. Returns 0.
TAVRIN_API int Tavrin_InitSimParams(SimParams* params);
// Runs the stage checks in the order CIC, ResEst, CompEst, AACS, SkewCrop and
// returns the first negative result, else 0.
TAVRIN_API int Tavrin_CheckSimParams(SimParams* params);
// Each returns 0, or minus the number of fields found out of range (the CIC
// check counts fields 1-8, else 9-10, else 11, stopping at the first group
// with a failure).
TAVRIN_API int checkSimParams_CIC(simCIC* p);
TAVRIN_API int checkSimParams_ResEst(simResEst* p);
TAVRIN_API int checkSimParams_CompEst(simCompEst* p);
TAVRIN_API int checkSimParams_AACS(simAACS* p);
TAVRIN_API int checkSimParams_SkewCrop(simSkewCropEst* p);

#endif
