#pragma once

#include <QByteArray>
#include <QMetaType>
#include <QVariant>
#include <QVariantList>
#include <QVariantMap>

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include <sanitizer/allocator_interface.h>

// Helpers shared by the fuzzers: an oracle failure that libFuzzer records as a crash, the
// largest single allocation made while a piece of code runs, and a value comparison that
// treats a NaN as equal to itself (a mutated real may well be one).
namespace FuzzSupport {

[[noreturn]] inline void fail(const char *what)
{
    std::fprintf(stderr, "fuzz oracle: %s\n", what);
    std::abort();
}

// Watches every malloc through the sanitizer's hooks. Install once; the fuzzers are single
// threaded, and the hook only compares and stores.
class LargestAllocation {
public:
    static void install()
    {
        static const bool installed = __sanitizer_install_malloc_and_free_hooks(&onMalloc, &onFree) != 0;
        if (!installed)
            fail("malloc hooks could not be installed");
    }
    static void reset() { s_largest = 0; }
    static size_t largest() { return s_largest; }

private:
    static void onMalloc(const volatile void *, size_t size)
    {
        if (size > s_largest)
            s_largest = size;
    }
    static void onFree(const volatile void *) {}
    static inline size_t s_largest = 0;
};

inline bool sameValue(const QVariant &a, const QVariant &b)
{
    if (a.metaType() != b.metaType())
        return false;
    switch (a.metaType().id()) {
    case QMetaType::QVariantMap: {
        const QVariantMap ma = a.toMap(), mb = b.toMap();
        if (ma.size() != mb.size())
            return false;
        for (auto i = ma.cbegin(), j = mb.cbegin(); i != ma.cend(); ++i, ++j)
            if (i.key() != j.key() || !sameValue(i.value(), j.value()))
                return false;
        return true;
    }
    case QMetaType::QVariantList: {
        const QVariantList la = a.toList(), lb = b.toList();
        if (la.size() != lb.size())
            return false;
        for (qsizetype i = 0; i < la.size(); ++i)
            if (!sameValue(la.at(i), lb.at(i)))
                return false;
        return true;
    }
    case QMetaType::Double: {
        const double x = a.toDouble(), y = b.toDouble();
        return (std::isnan(x) && std::isnan(y)) || x == y;
    }
    case QMetaType::Float: {
        const float x = a.value<float>(), y = b.value<float>();
        return (std::isnan(x) && std::isnan(y)) || x == y;
    }
    default:
        return a == b;
    }
}

} // namespace FuzzSupport
