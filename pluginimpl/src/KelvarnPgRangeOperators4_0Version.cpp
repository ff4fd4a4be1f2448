// Build version accessors. Kept free of server code so the unit tests link it too.
#include "KelvarnPgRangeOperators4_0Version.h"

namespace KelvarnPgRangeOperators4_0 {

int Version::GetMajor() { return 3; }
int Version::GetMinor() { return 3; }
int Version::GetRelease() { return 16; }
int Version::GetRevision() { return 765; }
int Version::GetYear() { return 2025; }
int Version::GetMonth() { return 6; }
const char* Version::GetDescStringMajorMinor(bool) { return "3.3"; }
const char* Version::GetDescStringMajorMinorRelease(bool) { return "3.3.16"; }
const char* Version::GetDescStringMajorMinorReleaseRevision(bool) { return "3.3.16.765 #5c1e07a94b2d38f6"; }
// The month is not zero-padded.
const char* Version::GetDescStringMajorMinorReleaseRevisionDate() { return "3.3.16.765 #5c1e07a94b2d38f6 2025-6"; }
bool Version::IsBeta() { return false; }
bool Version::IsDebug() { return false; }
bool Version::IsDev() { return false; }

}  // namespace KelvarnPgRangeOperators4_0
