// tvxcore/filesupport/DirIterators.h: listing directories.
//
// A listing reads a whole directory once, at construction, into a vector of
// full paths shared by all copies of the iterator: a snapshot that later
// changes to the directory don't touch. RecursiveFileIterator walks a tree
// depth-first over such listings. Nothing is raised for a missing or
// unreadable directory: it lists as empty.
//
// On Linux: names beginning with "." are hidden; a symbolic link to a
// directory lists as a directory, and any other link (a broken one included)
// as a file. With alias resolution, a link named "*.lnk" is an alias and
// stands for its target, a file or a directory, and a broken one is dropped;
// a listing of resolved files only keeps an alias to a directory, or a broken
// one, as the file it is. The recursive walk never enters a linked directory,
// so a link cycle can't make it loop; with alias resolution it enters the
// target of an alias, unless the walk is already inside that directory.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "tvxcore/Export.h"
#include "tvxcore/filesupport/File.h"

namespace tvxcore::filesupport {

// One position on a listing. Owned by its iterator; copies share the
// snapshot, read-only, and move independently.
class TVXCORE_EXPORT IteratorHelper
    : public utility::SmallBlockAllocator::Allocated<IteratorHelper> {
 public:
  // The snapshot: the full paths, in order, back to back in one buffer.
  class Entries;
  // Directories by device and inode.
  using DirIds = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

  // An end position.
  IteratorHelper();
  // Lists `path`: directories when `wantDirs`, else files. See Dir::BeginFiles.
  IteratorHelper(bool wantDirs, const UTF16String& path, bool resolveAliases,
                 boost::function<bool()>* abortCheck, bool resolvedFilesOnly,
                 PathComparePtr compare);
  // The mounted volumes (Dir::BeginVolumes).
  static IteratorHelper* Volumes(PathComparePtr compare);

  bool AtEnd() const { return atEnd_; }
  // The full path of the current entry; empty at the end.
  PathView Current() const;
  void Advance();
  bool operator==(const IteratorHelper& other) const;

 private:
  void Read(const UTF16String& path, boost::function<bool()>* abortCheck, bool resolvedFilesOnly);
  // One pass over the directory fills either or both vectors. An alias whose
  // target is one of `enteredDirs` (when given) is left out.
  static void ReadInto(const UTF16String& path, bool resolveAliases, bool skipLinkedDirs,
                       boost::function<bool()>* abortCheck, bool resolvedFilesOnly, Entries* files,
                       Entries* dirs, const DirIds* enteredDirs);
  void Finish();

  bool wantDirs_ = false;
  bool resolveAliases_ = false;
  bool atEnd_ = true;
  bool skipLinkedDirs_ = false;  // leave out links to directories
  boost::shared_ptr<Entries> entries_;
  int index_ = 0;
  PathComparePtr compare_;
  friend class RecursiveFileIterator;
};

// Every file of a tree, depth-first: a directory's own files before those of
// its subdirectories, subdirectories in listing order. Not thread-safe; copies
// share their listings.
class TVXCORE_EXPORT RecursiveFileIterator {
 public:
  // An end iterator.
  RecursiveFileIterator();
  // Starts at the first file of `root`, or resumes at `startPath` (a path
  // relative to `root`, its components matched with CompareFileNames): the
  // walk goes on from that file.
  RecursiveFileIterator(const Dir& root, bool resolveAliases,
                        boost::function<bool()> abortCheck = boost::function<bool()>(),
                        const UTF16String& startPath = UTF16String(),
                        PathComparePtr compare = PathComparePtr());

  File operator*() const;
  // The full path of the current file, without making a File; empty at the
  // end. It lives until the iterator next moves or is destroyed.
  PathView CurrentPath() const;
  // The directory that holds the current file.
  Dir CurrentDir() const;
  bool operator==(const RecursiveFileIterator& other) const;
  bool operator!=(const RecursiveFileIterator& other) const { return !(*this == other); }
  RecursiveFileIterator& operator++();
  RecursiveFileIterator operator++(int);

 private:
  // Lists the files and the subdirectories of `dir` in one pass.
  void Enter(const Dir& dir);
  // The listing of `helper`, when nobody else holds it, emptied for reuse;
  // the helper is left at its end.
  static boost::shared_ptr<IteratorHelper::Entries> Reclaim(IteratorHelper* helper);
  void Step();

  bool finished_ = true;
  bool resolveAliases_ = false;
  Dir::FileIterator files_, filesEnd_;
  // The subdirectories still to enter, one level a pair; used as a stack.
  std::vector<std::pair<Dir::DirIterator, Dir::DirIterator>> stack_;
  Dir current_;
  boost::function<bool()> abortCheck_;
  PathComparePtr compare_;
  // A spent listing of subdirectories, kept to be refilled.
  boost::shared_ptr<IteratorHelper::Entries> spare_;
  // With alias resolution: the directories the walk is inside of, one a
  // level of the stack, so that an alias leading back up isn't entered.
  IteratorHelper::DirIds enteredDirs_;
};

}  // namespace tvxcore::filesupport
