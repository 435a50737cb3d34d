#include "tvxcore/config/ClientIdentity.h"

#include "base/NoDestructor.h"

namespace tvxcore::config {
namespace {

struct IdentityValue {
  explicit IdentityValue(const char16_t* inDefault) : text(inDefault) {}
  UTF16String text;
  bool wasSet = false;

  void Assign(const UTF16String& inText) {
    text = inText;
    wasSet = true;
  }
};

struct Identity {
  IdentityValue clientName{u"No Client Name"};
  IdentityValue applicationName{u"No Application Name"};
  IdentityValue clientVersion{u"No Client Version"};
  IdentityValue internalVersion{u"No Client Internal Version"};
  IdentityValue buildNumber{u"No Client Internal Version"};
  IdentityValue companyName{u"No Company Name"};
  IdentityValue suiteVersion{u"No Client Suite Version"};
};

// Made on first use, which also covers callers from other load-time
// initialisers; never destroyed, so the texts handed out stay valid while
// other static objects are destroyed.
Identity& Values() {
  static base::NoDestructor<Identity> identity;
  return *identity;
}

}  // namespace

void SetClientName(const UTF16String& inName) { Values().clientName.Assign(inName); }
const UTF16String& GetClientName() { return Values().clientName.text; }
bool IsClientNameInitialized() { return Values().clientName.wasSet; }

void SetApplicationName(const UTF16String& inName) { Values().applicationName.Assign(inName); }
const UTF16String& GetApplicationName() {
  const Identity& identity = Values();
  return identity.applicationName.wasSet ? identity.applicationName.text : identity.clientName.text;
}

void SetClientVersion(const UTF16String& inVersion) { Values().clientVersion.Assign(inVersion); }
const UTF16String& GetClientVersion() { return Values().clientVersion.text; }

void SetClientInternalVersion(const UTF16String& inVersion) {
  Values().internalVersion.Assign(inVersion);
}
const UTF16String& GetClientInternalVersion() { return Values().internalVersion.text; }

void SetClientBuildNumber(const UTF16String& inBuildNumber) {
  Values().buildNumber.Assign(inBuildNumber);
}
const UTF16String& GetClientBuildNumber() { return Values().buildNumber.text; }

void SetCompanyName(const UTF16String& inName) { Values().companyName.Assign(inName); }
const UTF16String& GetCompanyName() { return Values().companyName.text; }

void SetClientSuiteVersion(const UTF16String& inVersion) {
  Values().suiteVersion.Assign(inVersion);
}

UTF16String GetSuiteClientVersion() {
  const Identity& identity = Values();
  if (identity.suiteVersion.wasSet) return identity.suiteVersion.text;
  UTF16String version = identity.clientVersion.text;
  auto dot = version.find(u'.');
  if (dot != UTF16String::npos && dot + 1 < version.size() && version[dot + 1] == u'0') {
    version.erase(dot);
  }
  if (version.compare(0, 2, u"QX") != 0) version.insert(0, u"QX");
  return version;
}

UTF16String GetSuiteClientName() {
  UTF16String name = GetCompanyName();
  name += u' ';
  name += GetClientName();
  name += u' ';
  name += GetSuiteClientVersion();
  name += u" (Linux)";
  return name;
}

}  // namespace tvxcore::config
