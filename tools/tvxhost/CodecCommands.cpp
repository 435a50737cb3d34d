// tvxhost rle and crc: the library's run-length code and CRC-32 as filters
// from standard input to standard output, for use in a pipe.
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>

#include "Args.h"
#include "FileChecks.h"
#include "Host.h"
#include "HostServices.h"
#include "tvxcore/filesupport/CRCByteStream.h"
#include "tvxcore/filesupport/PlatformByteStreams.h"
#include "tvxcore/filesupport/RLEByteStreams.h"

namespace tvxhost {
namespace {

namespace fs = tvxcore::filesupport;

constexpr std::size_t kChunk = 64 * 1024;

// Standard input as a stream of unknown length: Get() throws eof_error at its
// end, and a read error is a Failure. CurPos() counts the bytes taken.
class StdinByteStream : public fs::IByteStream {
 public:
  StdinByteStream() : buffer_(std::make_unique<unsigned char[]>(kChunk)) {}

  unsigned char Get() override {
    if (at_ == size_ && !Refill()) throw fs::eof_error();
    ++taken_;
    return buffer_[at_++];
  }
  void CurPos(unsigned long long) override { throw fs::byte_stream_exception(); }
  unsigned long long CurPos() const override { return taken_; }

  // Up to `count` bytes into `dst`; 0 only at the end.
  std::size_t ReadSome(unsigned char* dst, std::size_t count) {
    if (at_ == size_ && !Refill()) return 0;
    const std::size_t n = std::min(count, size_ - at_);
    std::memcpy(dst, buffer_.get() + at_, n);
    at_ += n;
    taken_ += n;
    return n;
  }

 private:
  bool Refill() {
    at_ = 0;
    size_ = std::fread(buffer_.get(), 1, kChunk, stdin);
    if (size_ == 0 && std::ferror(stdin) != 0)
      throw Failure(std::string("could not read standard input: ") + std::strerror(errno));
    return size_ > 0;
  }

  std::unique_ptr<unsigned char[]> buffer_;
  std::size_t at_ = 0;
  std::size_t size_ = 0;
  unsigned long long taken_ = 0;
};

// Standard output through stdio's buffer. Finish() makes sure every byte
// arrived and turns a write error into a Failure.
class StdoutByteStream : public fs::OByteStream {
 public:
  void Put(unsigned char byte) override {
    if (std::putc(byte, stdout) == EOF) Fail();
  }
  void WriteBlock(const unsigned char* src, std::uint32_t count) override {
    if (std::fwrite(src, 1, count, stdout) != count) Fail();
  }
  void CurPos(unsigned long long) override { throw fs::byte_stream_exception(); }
  unsigned long long CurPos() const override { throw fs::byte_stream_exception(); }
  void OSFlush() override {
    if (std::fflush(stdout) != 0) Fail();
  }
  void Truncate(unsigned long long) override { throw fs::byte_stream_exception(); }

  void Finish() { OSFlush(); }

 private:
  [[noreturn]] static void Fail() {
    throw Failure(std::string("could not write standard output: ") + std::strerror(errno));
  }
};

// What the coding and CRC streams leave to a derived class, for sinks where
// they mean nothing more than passing on.
class RLEWriter : public fs::ORLEByteStream {
 public:
  using ORLEByteStream::ORLEByteStream;
  void OSFlush() override {}
  void Truncate(unsigned long long) override {}
};

class CRCSum : public fs::OCRCByteStream {
 public:
  using OCRCByteStream::OCRCByteStream;
  void OSFlush() override {}
  void Truncate(unsigned long long) override {}
};

// Takes whatever is written and keeps nothing.
class NullSink : public fs::OByteStream {
 public:
  void Put(unsigned char) override {}
  void WriteBlock(const unsigned char*, std::uint32_t) override {}
  void CurPos(unsigned long long) override {}
  unsigned long long CurPos() const override { return 0; }
  void OSFlush() override {}
  void Truncate(unsigned long long) override {}
};

std::string Plural(unsigned long long count, const char* noun) {
  return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

int Rle(const Args& raw) {
  const ArgList args(raw, {{"-d", "--decode", false}}, {});
  StdinByteStream in;
  StdoutByteStream out;
  if (!args.Has("-d")) {
    RLEWriter coder(out);
    const auto block = std::make_unique<unsigned char[]>(kChunk);
    while (const std::size_t n = in.ReadSome(block.get(), kChunk))
      coder.WriteBlock(block.get(), static_cast<std::uint32_t>(n));
    coder.Flush();
    out.Finish();
    return kExitSuccess;
  }
  fs::IRLEByteStream decoder(in);
  unsigned long long written = 0;
  try {
    for (;; ++written) out.Put(decoder.Get());
  } catch (const fs::eof_error&) {
    out.Finish();
    if (decoder.InBlock()) {
      throw Failure("the coded data is cut short inside a block after " +
                    Plural(in.CurPos(), "byte") + "; the " + Plural(written, "byte") +
                    " decoded before the cut were written");
    }
  }
  return kExitSuccess;
}

// The CRC-32 of the file at `path`, read as it stands.
std::uint32_t FileCRC(const std::string& name) {
  const tvxcore::UTF16String path = PathArg(name, "<file>");
  RequireFile(path);
  NullSink sink;
  CRCSum sum(sink);
  try {
    fs::IPlatformByteStream file(fs::File(path), fs::kPlatformStreamShared);
    const auto block = std::make_unique<unsigned char[]>(kChunk);
    for (unsigned long long left = file.Length(); left > 0;) {
      const auto n = static_cast<std::uint32_t>(std::min<unsigned long long>(left, kChunk));
      file.ReadBlock(block.get(), n);
      sum.WriteBlock(block.get(), n);
      left -= n;
    }
  } catch (const fs::byte_stream_exception&) {
    throw Failure("could not read the file " + Quoted(name));
  }
  return sum.Value();
}

std::string Hex8(std::uint32_t value) {
  std::ostringstream text;
  text << std::hex << std::setw(8) << std::setfill('0') << value;
  return text.str();
}

int Crc(const Args& raw) {
  const ArgList args(raw, {}, {"[<file>]..."});
  if (args.Count() == 0) {
    StdinByteStream in;
    NullSink sink;
    CRCSum sum(sink);
    const auto block = std::make_unique<unsigned char[]>(kChunk);
    while (const std::size_t n = in.ReadSome(block.get(), kChunk))
      sum.WriteBlock(block.get(), static_cast<std::uint32_t>(n));
    std::cout << Hex8(sum.Value()) << '\n';
    return kExitSuccess;
  }
  // As crc32(1) prints them: the value alone for one file, with a tab and the
  // name for several.
  for (const std::string& name : args.Operands()) {
    const std::uint32_t value = FileCRC(name);
    std::cout << Hex8(value) << (args.Count() > 1 ? "\t" + name : "") << '\n';
  }
  return kExitSuccess;
}

const Registrar kRleCommand(CommandGroup{
    "rle",
    "run-length code standard input to standard output; -d decodes",
    {{"", "[-d]", "", Rle}},
    {"Codes bytes with the library's byte-oriented run-length code: each block is",
     "a header byte, then up to 128 literal bytes or one byte repeated 2 to 128",
     "times. Decoding a code that is cut short inside a block writes what it could",
     "decode and fails."},
    {
        {"rle", "codes standard input: tvxhost rle < image.raw > image.rle"},
        {"rle -d", "decodes it again: tvxhost rle -d < image.rle > image.raw"},
    }});

const Registrar kCrcCommand(CommandGroup{
    "crc",
    "the CRC-32 of standard input or of files, as crc32 prints it",
    {{"", "[<file>...]", "", Crc}},
    {"Prints the CRC-32 of zlib, gzip and ZIP as 8 lowercase hexadecimal digits:",
     "of standard input without a file, of the file alone, or for several files",
     "each value with a tab and the name."},
    {
        {"crc /dev/null", "prints 00000000"},
        {"crc", "the CRC of standard input: tvxhost crc < file"},
    }});

}  // namespace
}  // namespace tvxhost
