// Build version of the module, exported as plain C++ symbols of the shared object.
#pragma once

#ifdef POSTGRES_H
static_assert(false, "KelvarnPgRangeOperators4_0Version.h must not see server headers");
#endif

#define QN_EXPORT __attribute__((visibility("default")))

namespace KelvarnPgRangeOperators4_0 {

// Static accessors only; every value is fixed at build time. The bool parameters
// are accepted and ignored.
class QN_EXPORT Version {
public:
    static int GetMajor();
    static int GetMinor();
    static int GetRelease();
    static int GetRevision();
    static int GetYear();
    static int GetMonth();
    static const char* GetDescStringMajorMinor(bool);
    static const char* GetDescStringMajorMinorRelease(bool);
    static const char* GetDescStringMajorMinorReleaseRevision(bool);
    static const char* GetDescStringMajorMinorReleaseRevisionDate();
    static bool IsBeta();
    static bool IsDebug();
    static bool IsDev();
};

}  // namespace KelvarnPgRangeOperators4_0
