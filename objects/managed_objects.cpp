#include "objects/managed_objects.h"

#include "base/Guard.h"
#include "objects/data_cache.h"

#include <memory>

managed_objects mgmt_o;

void managed_objects::init() {
    cache = nullptr;
}

void managed_objects::update() {
    delete cache;
    cache = nullptr;
    auto fresh = std::make_unique<data_cache>();
    fresh->init();
    fresh->update();
    cache = fresh.release();
}

void update_managed_objects(void) {
    kavo::snmp::guarded([] { mgmt_o.update(); }, [] {});
}

int atm_access_c(int access, atm_entry* entry, int index, int param) {
    return kavo::snmp::guardedStatus([=]() -> int {
        if (mgmt_o.cache == nullptr)
            return CORVANTA_FAILED;
        return mgmt_o.cache->atm_access(static_cast<access_type>(access), entry, index,
                                        static_cast<vantorKx9_param_ids>(param));
    });
}
