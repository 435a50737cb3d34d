// tvxcore/proplist/PropListFiles.h: property lists in files, and points and
// rectangles stored as small arrays in a list.
//
// LoadPropList reads a file through the host's parser factory and holds the
// policy for a corrupt file (it can be put aside as "<name>.old");
// SavePropList writes through filesupport::SafeSave, so the old file stands
// until the new one is complete. The in-memory forms are in PropListUtils.h.
#pragma once

#include "tvxcore/Export.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/geom/Geometry.h"
#include "tvxcore/proplist/PropList.h"
#include "tvxcore/proplist/PropListUtils.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::proplist::utils {

// Reads the file at `path` into `list`. Failures go on the library's error
// road (config::ThrowError, level 1, module 104), and the list never keeps
// part of a file that failed to parse: it is cleared first.
//  - no parser factory installed: MissingParserFactoryLoad (21);
//  - a missing file, or one that was read and did not parse:
//    ParsingPropertiesListLoad (22) with the path as replacement 1;
//  - a file that exists but can't be read (a directory, anything but a
//    regular file, no permission, an I/O error): ReadingPropertiesListLoad
//    (23) with the path as replacement 1 and the system's reason ("Permission
//    denied") as replacement 2; it is never put aside;
//  - a version above the current one is the reader's VersionGreaterThan (20);
//    when the error manager throws it, the list is cleared before it leaves;
//  - with `renameCorrupt`, a file that was read but doesn't parse is renamed
//    to "<name>.old" (an older backup is deleted first) and the report is
//    ParsingPropertiesListCorruptRename (22), with the path as replacement 1
//    and the backup's name as replacement 2. A host that asks for this is
//    expected to go on with the emptied list.
// Putting the file aside may throw the file exceptions of File::Delete and
// File::Rename. No lock; the list belongs to the caller's thread.
TVXCORE_EXPORT void LoadPropList(const UTF16String& path, PropList& list, bool renameCorrupt);

// Writes `list` to `file` with the safe-save protocol: the text goes to a
// temporary file beside it, is flushed to disk and renamed onto `file` in one
// atomic step. Failures are those of the byte streams and of File (creating
// the temporary file, writing it, rename_file on commit) and pass through
// unchanged; the old file then stands as it was and the temporary file is
// removed.
TVXCORE_EXPORT void SavePropList(filesupport::File& file, const PropList& list);
TVXCORE_EXPORT void SavePropList(const UTF16String& path, const PropList& list);

// A rectangle is stored under `key` as a four-element array in the order
// left, top, right, bottom; a point as x, y. The integer forms store 32-bit
// values (the file format's "int"), so a `long` beyond that range is cut to
// its low 32 bits. A reader given a missing key or a value of another type
// answers all zeros; a shorter array fills the members it has and leaves the
// rest zero; extra elements are ignored.
TVXCORE_EXPORT void WriteRect32(const UTF8String& key, const geom::RectT<long>& rect,
                                PropList& list);
TVXCORE_EXPORT void WriteRectF32(const UTF8String& key, const geom::RectT<float>& rect,
                                 PropList& list);
TVXCORE_EXPORT void WritePoint32(const UTF8String& key, const geom::PointT<long>& point,
                                 PropList& list);
TVXCORE_EXPORT void WritePointF32(const UTF8String& key, const geom::PointT<float>& point,
                                  PropList& list);
TVXCORE_EXPORT geom::RectT<long> ReadRect32(const UTF8String& key, const PropList& list);
TVXCORE_EXPORT geom::RectT<float> ReadRectF32(const UTF8String& key, const PropList& list);
TVXCORE_EXPORT geom::PointT<long> ReadPoint32(const UTF8String& key, const PropList& list);
TVXCORE_EXPORT geom::PointT<float> ReadPointF32(const UTF8String& key, const PropList& list);

}  // namespace tvxcore::proplist::utils
