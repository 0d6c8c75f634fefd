// Simulation (tuning) parameter tables, their defaults and range checks.
#include <TavrinParams.h>

#include <cstring>

// Rows: minimum, default, maximum. The records hold their multi-byte fields
// in the machine's (little-endian) order, so the tables' bytes are exactly
// the records' bytes.
const simCIC strSimCICParams_Limit[3] = {
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
    {0, 0, 0, 0, 2, 1, 1, 1, 0, 0, 0},
    {1, 1, 1, 1, 4, 2, 2, 2, 1, 1, 1},
};
const simResEst strSimResEstParams_Limit[3] = {
    {0, 0, 0, 0, 0, 0, 0},
    {3, 2, 1, 1, 1, 0, 1},
    {3, 3, 3, 3, 3, 1, 2},
};
const simCompEst strSimCompEstParams_Limit[3] = {
    {0, 0},
    {0, 1},
    {1, 3},
};
const simAACS strSimAACSParams_Limit[3] = {
    {0},
    {2},
    {4},
};
const simSkewCropEst strSimSkewCropParams_Limit[3] = {
    {0, 0, 0, 0, -50, -3},
    {300, 20, 10, 0, 0, 0},
    {4500, 4500, 100, 0, 50, 3},
};

namespace {

// True when minimum <= value <= maximum, compared in the field's own type
// (so the signed fields of simSkewCropEst compare signed).
template <class Record, class Field>
bool withinLimits(const Record (&table)[3], Field Record::*member, const Record& value) {
    return table[0].*member <= value.*member && value.*member <= table[2].*member;
}

// Number of members out of range.
template <class Record, class Field, size_t N>
int countFailures(const Record (&table)[3], Field Record::*const (&members)[N],
                  const Record& value) {
    int failures = 0;
    for (Field Record::*member : members) {
        if (!withinLimits(table, member, value)) ++failures;
    }
    return failures;
}

template <class Record>
void copyDefaults(Record* record, const Record (&table)[3]) {
    if (record != nullptr) std::memcpy(record, &table[1], sizeof(Record));
}

}  // namespace

int Tavrin_InitSimParams(SimParams* params) {
    // Null pointers designate no record: there is nothing to fill.
    if (params == nullptr) return 0;
    copyDefaults(params->simCIC, strSimCICParams_Limit);
    copyDefaults(params->simResEst, strSimResEstParams_Limit);
    copyDefaults(params->simCompEst, strSimCompEstParams_Limit);
    copyDefaults(params->simAACS, strSimAACSParams_Limit);
    copyDefaults(params->simSkewCropEst, strSimSkewCropParams_Limit);
    return 0;
}

int Tavrin_CheckSimParams(SimParams* params) {
    if (params == nullptr) return -1;
    int status = checkSimParams_CIC(params->simCIC);
    if (status < 0) return status;
    status = checkSimParams_ResEst(params->simResEst);
    if (status < 0) return status;
    status = checkSimParams_CompEst(params->simCompEst);
    if (status < 0) return status;
    status = checkSimParams_AACS(params->simAACS);
    if (status < 0) return status;
    return checkSimParams_SkewCrop(params->simSkewCropEst);
}

// A missing stage record cannot be valid: each check reports it as -1.

int checkSimParams_CIC(simCIC* p) {
    if (p == nullptr) return -1;
    // Three groups, reported one at a time: a later group is only looked at
    // when every earlier one is clean.
    static constexpr uint8_t simCIC::*kGroup1[] = {
        &simCIC::ucField1, &simCIC::ucField2, &simCIC::ucField3, &simCIC::ucField4,
        &simCIC::ucField5, &simCIC::ucField6, &simCIC::ucField7, &simCIC::ucField8};
    static constexpr uint8_t simCIC::*kGroup2[] = {&simCIC::ucField9, &simCIC::ucField10};
    static constexpr uint8_t simCIC::*kGroup3[] = {&simCIC::ucField11};
    int failures = countFailures(strSimCICParams_Limit, kGroup1, *p);
    if (failures == 0) failures = countFailures(strSimCICParams_Limit, kGroup2, *p);
    if (failures == 0) failures = countFailures(strSimCICParams_Limit, kGroup3, *p);
    return -failures;
}

int checkSimParams_ResEst(simResEst* p) {
    if (p == nullptr) return -1;
    static constexpr uint8_t simResEst::*kFields[] = {
        &simResEst::ucField1, &simResEst::ucField2, &simResEst::ucField3, &simResEst::ucField4,
        &simResEst::ucField5, &simResEst::ucField6, &simResEst::ucField7};
    return -countFailures(strSimResEstParams_Limit, kFields, *p);
}

int checkSimParams_CompEst(simCompEst* p) {
    if (p == nullptr) return -1;
    static constexpr uint8_t simCompEst::*kFields[] = {&simCompEst::ucField1,
                                                      &simCompEst::ucField2};
    return -countFailures(strSimCompEstParams_Limit, kFields, *p);
}

int checkSimParams_AACS(simAACS* p) {
    if (p == nullptr) return -1;
    return withinLimits(strSimAACSParams_Limit, &simAACS::ucField1, *p) ? 0 : -1;
}

int checkSimParams_SkewCrop(simSkewCropEst* p) {
    if (p == nullptr) return -1;
    const auto& table = strSimSkewCropParams_Limit;
    int failures = 0;
    if (!withinLimits(table, &simSkewCropEst::usField1, *p)) ++failures;
    if (!withinLimits(table, &simSkewCropEst::usField2, *p)) ++failures;
    if (!withinLimits(table, &simSkewCropEst::ucField3, *p)) ++failures;
    if (!withinLimits(table, &simSkewCropEst::sField4, *p)) ++failures;
    if (!withinLimits(table, &simSkewCropEst::sField5, *p)) ++failures;
    return -failures;
}
