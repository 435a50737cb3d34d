// tvxhost alloc: the small-block allocator's size classes and a live run of
// allocations on several threads.
#include <atomic>
#include <chrono>
#include <iomanip>
#include <iostream>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Args.h"
#include "Host.h"
#include "HostServices.h"
#include "tvxcore/threads/Thread.h"
#include "tvxcore/utility/SmallBlockAllocator.h"

namespace tvxhost {
namespace {

using tvxcore::utility::SmallBlockAllocator;

struct ClassRange {
  std::size_t from, to, blockSize;
};

// Requests up to 8192 bytes grouped by the block size they get.
std::vector<ClassRange> ClassRanges() {
  std::vector<ClassRange> ranges;
  for (std::size_t size = 0; size <= 8192; ++size) {
    const std::size_t block = SmallBlockAllocator::GetActualAllocationSize(size);
    if (ranges.empty() || ranges.back().blockSize != block)
      ranges.push_back({size, size, block});
    else
      ranges.back().to = size;
  }
  return ranges;
}

void PrintClassTable(std::ostream& out, bool detailed) {
  const auto ranges = ClassRanges();
  out << "  " << ranges.size()
      << " table classes for requests up to 8192 bytes, plus 4160 and 66624 for the\n"
         "  allocator's own chunks; larger requests go to system pages\n";
  if (detailed) {
    out << "  requests        block  worst waste\n";
    for (const auto& r : ranges) {
      const std::size_t smallest = r.from == 0 ? 1 : r.from;
      out << "  " << std::setw(5) << r.from << " - " << std::setw(5) << r.to << "  " << std::setw(5)
          << r.blockSize << "  " << std::setw(5) << std::fixed << std::setprecision(1)
          << 100.0 * double(r.blockSize - smallest) / double(r.blockSize) << "%\n";
    }
  } else {
    out << "  block sizes:";
    int column = 0;
    for (const auto& r : ranges) {
      if (column++ % 17 == 0) out << "\n   ";
      out << ' ' << r.blockSize;
    }
    out << '\n';
  }
}

struct StressResult {
  std::uint64_t allocations = 0;
  std::uint64_t releases = 0;
  std::uint64_t crossThread = 0;
  std::uint64_t damaged = 0;
  double seconds = 0;
};

// Each thread allocates blocks of random sizes, keeps up to 256 of them, and
// hands every fourth one to its neighbour thread to release. The calling
// thread shows the progress meanwhile.
StressResult RunStress(int threadCount, int perThread) {
  struct Mailbox {
    std::mutex mutex;
    std::vector<std::pair<unsigned char*, std::size_t>> blocks;
  };
  std::vector<Mailbox> mailboxes(threadCount);
  std::atomic<std::uint64_t> allocations{0}, releases{0}, crossThread{0}, damaged{0};
  auto release = [&](unsigned char* p, std::size_t size) {
    if (p[size - 1] != static_cast<unsigned char>(size)) ++damaged;
    SmallBlockAllocator::Dispose(p, size);
    ++releases;
  };
  auto work = [&](int id) {
    std::mt19937 random(id + 1);
    std::vector<std::pair<unsigned char*, std::size_t>> held, received;
    for (int i = 0; i < perThread; ++i) {
      const std::size_t size = 1 + random() % (random() % 8 == 0 ? 8192 : 512);
      auto* p = static_cast<unsigned char*>(SmallBlockAllocator::Allocate(size));
      p[size - 1] = static_cast<unsigned char>(size);
      ++allocations;
      if (i % 4 == 0 && threadCount > 1) {
        Mailbox& next = mailboxes[(id + 1) % threadCount];
        std::lock_guard<std::mutex> lock(next.mutex);
        next.blocks.emplace_back(p, size);
        ++crossThread;
      } else {
        held.emplace_back(p, size);
      }
      if (i % 64 == 0) {
        {
          std::lock_guard<std::mutex> lock(mailboxes[id].mutex);
          received.swap(mailboxes[id].blocks);
        }
        for (auto& [q, qSize] : received) release(q, qSize);
        received.clear();
      }
      if (held.size() > 256) {
        const std::size_t at = random() % held.size();
        release(held[at].first, held[at].second);
        held[at] = held.back();
        held.pop_back();
      }
    }
    for (auto& [q, qSize] : held) release(q, qSize);
  };
  const auto start = std::chrono::steady_clock::now();
  std::vector<boost::thread> threads;
  for (int id = 0; id < threadCount; ++id)
    threads.push_back(tvxcore::threads::CreateNamedThread("alloc stress", [&work, id] { work(id); },
                                                          tvxcore::threads::ThreadPriority_Normal,
                                                          {}, {}));
  {
    Progress progress("alloc stress");
    const double total = double(threadCount) * double(perThread);
    while (allocations < total) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      progress.Update(double(allocations) / total);
    }
  }
  for (auto& t : threads) t.join();
  StressResult result;
  for (auto& box : mailboxes)
    for (auto& [p, size] : box.blocks) release(p, size);
  result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  result.allocations = allocations;
  result.releases = releases;
  result.crossThread = crossThread;
  result.damaged = damaged;
  return result;
}

// Runs the stress and prints its figures; false when a block came back damaged.
bool PrintStress(std::ostream& out, int threads, int perThread) {
  const StressResult r = RunStress(threads, perThread);
  out << "  " << threads << " threads: " << r.allocations << " allocations, " << r.releases
      << " releases (" << r.crossThread << " on another thread), " << r.damaged
      << " damaged blocks, " << std::fixed << std::setprecision(1)
      << (r.allocations + r.releases) / r.seconds / 1e6 << " million operations/s\n";
  return r.damaged == 0;
}

int Classes(const Args& raw) {
  const ArgList args(raw, {}, {});
  PrintClassTable(std::cout, true);
  return kExitSuccess;
}

int Size(const Args& raw) {
  const ArgList args(raw, {}, {"<bytes>..."});
  for (const std::string& arg : args.Operands()) {
    const auto request = ParseInteger<std::size_t>(arg, "<bytes>");
    std::cout << request << " -> " << SmallBlockAllocator::GetActualAllocationSize(request) << '\n';
  }
  return kExitSuccess;
}

int Stress(const Args& raw) {
  const ArgList args(raw, {}, {"[<threads>]", "[<blocks-per-thread>]"});
  const int threads = args.Count() > 0 ? ParseInteger<int>(args[0], "<threads>", 1, 256) : 4;
  const int blocks =
      args.Count() > 1 ? ParseInteger<int>(args[1], "<blocks-per-thread>", 1, 100000000) : 200000;
  if (!PrintStress(std::cout, threads, blocks))
    throw Failure("alloc stress: blocks came back damaged");
  return kExitSuccess;
}

const Registrar kAllocCommands(CommandGroup{
    "alloc",
    "the small-block allocator: size classes, block sizes, a run on several threads",
    {
        {"classes", "", "the size classes, request ranges and worst waste", Classes},
        {"size", "<bytes>...", "the block size that a request of so many bytes gets", Size},
        {"stress", "[<threads 1-256>] [<blocks-per-thread 1-100000000>]",
         "allocate and release on several threads (4 and 200000 by default)", Stress},
    },
    {},
    {
        {"alloc size 1 100 5000", "the block size of each request"},
        {"alloc stress 4 100000", "the allocator under four threads"},
    }});

const Registrar kAllocReport(ReportSection{"Small-block allocator",
                                           [](std::ostream& out) { PrintClassTable(out, false); }});

}  // namespace
}  // namespace tvxhost
