// The single SharedData instance and the meta-type registration.
// A function-local static gives thread-safe construction on first use.
#include "core/shared_records.hpp"

SharedData& SharedData::getInstance() {
    static SharedData instance;
    return instance;
}

void registerSharedMetaTypes() {
    qRegisterMetaType<std::vector<lum::FusionConfiguration>>("std::vector<lum::FusionConfiguration>");
    qRegisterMetaType<lum::UNIT>("lum::UNIT");
    qRegisterMetaType<lum::COORDINATE_SYSTEM>("lum::COORDINATE_SYSTEM");
    qRegisterMetaType<AppParams>("AppParams");
}
