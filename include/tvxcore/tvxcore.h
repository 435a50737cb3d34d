// tvxcore/tvxcore.h: the whole public interface of tvxcore in one include.
#pragma once

#include "tvxcore/Export.h"
#include "tvxcore/Version.h"
#include "tvxcore/base/ThreadAnnotations.h"

// Memory and strings
#include "tvxcore/utility/CaseMapping.h"
#include "tvxcore/utility/Flags.h"
#include "tvxcore/utility/ImmutableString.h"
#include "tvxcore/utility/MemoryRecycler.h"
#include "tvxcore/utility/NumberText.h"
#include "tvxcore/utility/SmallBlockAllocator.h"
#include "tvxcore/utility/StringTypes.h"
#include "tvxcore/utility/StringUtils.h"
#include "tvxcore/utility/TextStreams.h"
#include "tvxcore/utility/UnicodeConversion.h"

// Errors, localised text, client identity, host facts
#include "tvxcore/Locale.h"
#include "tvxcore/ZString.h"
#include "tvxcore/config/ClientIdentity.h"
#include "tvxcore/config/Errors.h"
#include "tvxcore/config/Localizer.h"
#include "tvxcore/debug/Assert.h"
#include "tvxcore/debug/StackTrace.h"
#include "tvxcore/utility/HostInfo.h"
#include "tvxcore/utility/MachineExceptions.h"
#include "tvxcore/utility/RefCountedObject.h"

// Trace and diagnostics
#include "tvxcore/debug/DebugDatabase.h"
#include "tvxcore/debug/SafeTraceStream.h"
#include "tvxcore/debug/Trace.h"
#include "tvxcore/debug/TraceHandler.h"
#include "tvxcore/debug/TraceHandlers.h"

// Threads and execution
#include "tvxcore/threads/AsyncExecutor.h"
#include "tvxcore/threads/DelayedExecution.h"
#include "tvxcore/threads/EventLoop.h"
#include "tvxcore/threads/Gate.h"
#include "tvxcore/threads/ReadWriteLock.h"
#include "tvxcore/threads/RecursiveMutex.h"
#include "tvxcore/threads/SharedExecutors.h"
#include "tvxcore/threads/SubExecutor.h"
#include "tvxcore/threads/SyncPoint.h"
#include "tvxcore/threads/Thread.h"

// Streams and files
#include "tvxcore/MemoryMappedFile.h"
#include "tvxcore/filesupport/AdapterByteStreams.h"
#include "tvxcore/filesupport/BufferedByteStreams.h"
#include "tvxcore/filesupport/ByteStream.h"
#include "tvxcore/filesupport/ByteStreamOperators.h"
#include "tvxcore/filesupport/CRCByteStream.h"
#include "tvxcore/filesupport/CommonDirs.h"
#include "tvxcore/filesupport/DirIterators.h"
#include "tvxcore/filesupport/DirectoryChangeMonitor.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/filesupport/FileExceptionText.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/filesupport/MemoryByteStreams.h"
#include "tvxcore/filesupport/PlatformByteStreams.h"
#include "tvxcore/filesupport/RLEByteStreams.h"
#include "tvxcore/filesupport/SafeSave.h"
#include "tvxcore/utility/FileUtils.h"

// Background file copies
#include "tvxcore/filesupport/FileCopyStreams.h"
#include "tvxcore/utility/BinaryCopier.h"

// Structured data
#include "tvxcore/geom/Geometry.h"
#include "tvxcore/proplist/PropList.h"
#include "tvxcore/proplist/PropListFiles.h"
#include "tvxcore/proplist/PropListUtils.h"
#include "tvxcore/proplist/PropListXMLHandler.h"
#include "tvxcore/proplist/PropNodes.h"
#include "tvxcore/serialization/JSON.h"
#include "tvxcore/xml/ExpatParser.h"
#include "tvxcore/xml/XMLParser.h"
