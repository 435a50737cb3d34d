// tvxcore/Export.h: symbol visibility of the shared library.
// The library is built with hidden visibility; TVXCORE_EXPORT marks the classes
// and functions that form its public interface.
#pragma once

#define TVXCORE_EXPORT __attribute__((visibility("default")))
