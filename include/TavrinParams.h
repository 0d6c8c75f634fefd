// Request and simulation parameter records of libTavrinCommon, with their
// exported three-row limit tables (row 0 minimum, row 1 default, row 2
// maximum, each laid out exactly like the record).
//
// Threads: the checks only read the limit tables and the caller's records,
// and Tavrin_InitSimParams writes only the records it is given: all may run
// on several threads at once.
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

// Checks the request fields against rows 0 (minimum) and 2 (maximum) of
// strInputParams_Limit, in this order: ucModelID, ucModeCicFunc,
// ucModeIdxColFunc, ucModeEditFunc, ucModeResEstFunc, ucModeSkewEstFunc,
// ucModeCropEstFunc, ucModeAdvAcsFunc, ucCicModeSwitch, ucModeIq, ucMview,
// ucResEstCompMode, ucFreqInfo, ucAeLevel, ucFeeder, ucFeedDirection,
// ucBacking, ucRotated, UseManyCore. ucMview and ucAeLevel also pass when 0;
// the other fields (angle, cos, sin, extents, reserved bytes) are not checked.
// The record is never changed.
//   params   the request record.
//   message  caller buffer of at least 47 bytes; written only on failure, with
//            "Tavrin_Execute <field name> illegal[<value>]\n" (NUL-terminated).
//            May be null: the status is returned without a message.
// Returns 0 when every checked field is within its limits; -1 at the first
// illegal field (later fields are not examined), or when params is null (no
// message then).
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

// Copies the default row (row 1) of each table, byte for byte, into the stage
// record its pointer designates. Null pointers (params or a stage) are
// skipped. Returns 0.
TAVRIN_API int Tavrin_InitSimParams(SimParams* params);
// Runs the stage checks in the order CIC, ResEst, CompEst, AACS, SkewCrop and
// returns the first negative result at once, else 0. Nothing is corrected.
// Returns -1 when params is null.
TAVRIN_API int Tavrin_CheckSimParams(SimParams* params);
// Stage checks: a field passes when minimum <= value <= maximum (row 0 and
// row 2 of the stage's table), compared signed for the signed fields.
// Each returns 0 when all fields pass, else minus the number of fields out of
// range; -1 for a null record. The CIC check counts fields 1-8; only when
// they all pass fields 9-10; only when those pass too field 11.
TAVRIN_API int checkSimParams_CIC(simCIC* p);
TAVRIN_API int checkSimParams_ResEst(simResEst* p);
TAVRIN_API int checkSimParams_CompEst(simCompEst* p);
TAVRIN_API int checkSimParams_AACS(simAACS* p);
TAVRIN_API int checkSimParams_SkewCrop(simSkewCropEst* p);

#endif
