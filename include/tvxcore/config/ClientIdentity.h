// tvxcore/config/ClientIdentity.h: who the client application is.
//
// Seven texts the host sets at start-up (name, version, company, ...) and that
// the library uses for file names, logs and reports. Each has a default until set.
#pragma once

#include "tvxcore/Export.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::config {

// None of these is locked: the setters belong to start-up, before other
// threads read the values. Plain getters return a reference to the global
// value, valid until the library is unloaded. A setter replaces the text and
// marks the value as set; nothing clears that mark.

TVXCORE_EXPORT void SetClientName(const UTF16String& inName);
TVXCORE_EXPORT const UTF16String& GetClientName();  // "No Client Name"
// Whether SetClientName has run; until then no preferences file is touched.
TVXCORE_EXPORT bool IsClientNameInitialized();

TVXCORE_EXPORT void SetApplicationName(const UTF16String& inName);
// The application name once set; until then the (current) client name.
TVXCORE_EXPORT const UTF16String& GetApplicationName();

TVXCORE_EXPORT void SetClientVersion(const UTF16String& inVersion);
TVXCORE_EXPORT const UTF16String& GetClientVersion();  // "No Client Version"

TVXCORE_EXPORT void SetClientInternalVersion(const UTF16String& inVersion);
TVXCORE_EXPORT const UTF16String& GetClientInternalVersion();  // "No Client Internal Version"

TVXCORE_EXPORT void SetClientBuildNumber(const UTF16String& inBuildNumber);
// Its default repeats the internal version's: "No Client Internal Version".
TVXCORE_EXPORT const UTF16String& GetClientBuildNumber();

TVXCORE_EXPORT void SetCompanyName(const UTF16String& inName);
TVXCORE_EXPORT const UTF16String& GetCompanyName();  // "No Company Name"

// The suite version ("No Client Suite Version" until set) is read only
// through GetSuiteClientVersion.
TVXCORE_EXPORT void SetClientSuiteVersion(const UTF16String& inVersion);

// The suite version if set; otherwise the client version, cut at its first "."
// when a "0" follows it ("6.0.1" -> "6"), with "QX" in front unless it starts so.
TVXCORE_EXPORT UTF16String GetSuiteClientVersion();

// "<company> <client> <suite version> (Linux)".
TVXCORE_EXPORT UTF16String GetSuiteClientName();

}  // namespace tvxcore::config
