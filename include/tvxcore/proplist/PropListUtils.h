// tvxcore/proplist/PropListUtils.h: the front of the property list machinery:
// a list to and from its XML text in memory.
//
// The text form is version 4: "<?xml version='1.0'?>", a "prop.map" element
// with the list's version, and the nested "prop.list" elements of the list.
#pragma once

#include "tvxcore/Export.h"
#include "tvxcore/proplist/PropList.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::proplist::utils {

// Replaces `text` with the XML form of `list`.
TVXCORE_EXPORT void WritePropList(UTF8String& text, const PropList& list);

// Reads the XML form in `text` into `list`, through the host's parser factory
// (xml::SetParserFactory). Values are added to what the list holds; on a parse
// failure the list keeps what was read before it. Failures are reported on the
// library's error road at level 1, module 104: no factory installed (21), a
// parse error (22), a version above the current one (20).
TVXCORE_EXPORT void ReadPropList(const UTF8String& text, PropList& list);

}  // namespace tvxcore::proplist::utils
