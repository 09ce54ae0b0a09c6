#pragma once

#include <lv2/urid/urid.h>

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

// The URI <-> integer table that LV2 plugins and the host share (the urid map and unmap
// features). One table per process, owned by the LV2 world, so that URIDs stay the same across
// all instances and across saved state.
//
// Threads: map and unmap may be called from any thread; they take a mutex, so they are not for
// the render thread. Plugins call them while being instantiated or restored, which we do off the
// render thread. A URID, once given, is never taken back, and the text behind it stays valid for
// the life of the table.
class VEKLV2URIDMap {
public:
    VEKLV2URIDMap();
    VEKLV2URIDMap(const VEKLV2URIDMap &) = delete;
    VEKLV2URIDMap &operator=(const VEKLV2URIDMap &) = delete;

    // 0 only for a null or empty URI.
    LV2_URID map(const char *uri);
    // Null for an unknown URID.
    const char *unmap(LV2_URID urid);

    // The feature structures to hand to plugins; they point into this object.
    LV2_URID_Map *mapFeature() { return &m_map; }
    LV2_URID_Unmap *unmapFeature() { return &m_unmap; }

private:
    std::mutex m_mutex;
    std::unordered_map<std::string, LV2_URID> m_ids;
    // Index URID - 1. Deque-like stability: each string is its own allocation, so the pointers
    // handed out by unmap() survive growth of the vector.
    std::vector<std::unique_ptr<std::string>> m_uris;
    LV2_URID_Map m_map;
    LV2_URID_Unmap m_unmap;
};
