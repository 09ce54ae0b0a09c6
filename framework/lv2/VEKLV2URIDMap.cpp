#include "lv2/VEKLV2URIDMap.h"

#include <cstring>

namespace {
LV2_URID mapCallback(LV2_URID_Map_Handle handle, const char *uri)
{
    return static_cast<VEKLV2URIDMap *>(handle)->map(uri);
}

const char *unmapCallback(LV2_URID_Unmap_Handle handle, LV2_URID urid)
{
    return static_cast<VEKLV2URIDMap *>(handle)->unmap(urid);
}
} // namespace

VEKLV2URIDMap::VEKLV2URIDMap()
{
    m_map.handle = this;
    m_map.map = mapCallback;
    m_unmap.handle = this;
    m_unmap.unmap = unmapCallback;
}

LV2_URID VEKLV2URIDMap::map(const char *uri)
{
    if (!uri || !*uri)
        return 0;
    std::lock_guard lock(m_mutex);
    const auto found = m_ids.find(uri);
    if (found != m_ids.end())
        return found->second;
    m_uris.push_back(std::make_unique<std::string>(uri));
    const auto id = LV2_URID(m_uris.size());
    m_ids.emplace(*m_uris.back(), id);
    return id;
}

const char *VEKLV2URIDMap::unmap(LV2_URID urid)
{
    std::lock_guard lock(m_mutex);
    if (urid == 0 || urid > m_uris.size())
        return nullptr;
    return m_uris[urid - 1]->c_str();
}
