// tvxcore/threads/Gate.h: a gate that threads pass while it is open and wait
// at while it is closed.
//
// A Gate is one pointer to a gate record (an event and a state word) taken
// from a process-wide lock-free pool; passing an open gate is one atomic read.
#pragma once

#include "tvxcore/Export.h"

namespace tvxcore::threads {

// A manual gate: Open() lets every waiting and later thread through until
// Close(). States: closed, open, and closing (only inside Close()).
//
// - Opening an open gate or closing a closed one does nothing.
// - An Open() that meets a concurrent Close() in its closing state is lost:
//   the gate ends closed.
// - PassThrough() on a gate that is just closing may still pass; the gate
//   promises no more than that.
//
// All operations may be called from any thread at any time. The record goes
// back to the pool on destruction, keeping its event; passing a destroyed gate
// is undefined. Not copyable.
class TVXCORE_EXPORT Gate {
 public:
  explicit Gate(bool open = false);
  ~Gate();
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  void Open();
  void Close();

  // Returns true if the gate is open or opens within `milliseconds`, false on
  // time-out. A negative time waits for ever; 0 only looks.
  bool PassThrough(int milliseconds) const;

 private:
  struct Record;
  Record* record_;
};

}  // namespace tvxcore::threads
