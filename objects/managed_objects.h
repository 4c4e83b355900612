#pragma once

#include <corvanta.h>

class data_cache;

/// Root of the managed objects: holds the cache of configuration state.
class CORVANTA_API managed_objects {
public:
    /// Forgets the cache without releasing it.
    void init();

    /// Replaces the cache by one loaded from the database.
    void update();

    data_cache* cache = nullptr; ///< owned; null until the first update()
};

extern CORVANTA_API managed_objects mgmt_o;
