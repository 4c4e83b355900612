#include "objects/managed_objects.h"

#include "frame/Guard.h"
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
