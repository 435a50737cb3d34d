#include "Args.h"

#include "tvxcore/filesupport/File.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxhost {

namespace {

// The length of the valid UTF-8 sequence at `at`, or 0 when none starts there.
std::size_t SequenceLength(std::string_view text, std::size_t at) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(at);
  if (lead < 0x80) return 1;
  std::size_t length = 0;
  unsigned char low = 0x80, high = 0xBF;  // the range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;   // no overlong forms
    if (lead == 0xED) high = 0x9F;  // no surrogates
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;  // nothing above U+10FFFF
  } else {
    return 0;
  }
  if (at + length > text.size() || byte(at + 1) < low || byte(at + 1) > high) return 0;
  for (std::size_t k = 2; k < length; ++k)
    if (byte(at + k) < 0x80 || byte(at + k) > 0xBF) return 0;
  return length;
}

}  // namespace

std::size_t FindInvalidUtf8(std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = SequenceLength(text, i);
    if (length == 0) return i;
    i += length;
  }
  return std::string_view::npos;
}

std::string Quoted(std::string_view text) {
  static const char kHex[] = "0123456789abcdef";
  std::string out = "'";
  std::size_t characters = 0;
  for (std::size_t i = 0; i < text.size(); ++characters) {
    if (characters == 60) {
      out += "...";
      break;
    }
    const auto byte = static_cast<unsigned char>(text[i]);
    const std::size_t length = SequenceLength(text, i);
    if (length == 0 || byte < 0x20 || byte == 0x7F) {
      out += "\\x";
      out += kHex[byte >> 4];
      out += kHex[byte & 15];
      ++i;
    } else {
      out.append(text.substr(i, length));
      i += length;
    }
  }
  return out + "'";
}

tvxcore::UTF16String TextArg(std::string_view text, std::string_view what) {
  const std::size_t bad = FindInvalidUtf8(text);
  if (bad != std::string_view::npos) {
    throw UsageError(std::string(what) + " is not valid UTF-8 text (byte " +
                     std::to_string(bad + 1) + " of " + std::to_string(text.size()) +
                     "): " + Quoted(text));
  }
  return tvxcore::utility::UTF8to16(tvxcore::UTF8String(text.begin(), text.end()));
}

tvxcore::UTF16String PathArg(std::string_view text, std::string_view what) {
  if (text.empty()) throw UsageError(std::string(what) + " is empty; give a path");
  return tvxcore::filesupport::FileHelper(std::string(text)).Path();
}

ArgList::ArgList(const Args& args, const std::vector<Option>& options,
                 const std::vector<std::string>& operands) {
  auto find = [&](const std::string& word) -> const Option* {
    for (const Option& option : options)
      if (word == option.name || (!option.alias.empty() && word == option.alias)) return &option;
    return nullptr;
  };
  bool onlyOperands = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& word = args[i];
    const bool looksLikeOption =
        word.size() > 1 && word[0] == '-' && !(word[1] >= '0' && word[1] <= '9') && word[1] != '.';
    if (onlyOperands || !looksLikeOption) {
      operands_.push_back(word);
      continue;
    }
    if (word == "--") {
      onlyOperands = true;
      continue;
    }
    const auto equals = word.find('=');
    const std::string name = word.substr(0, word.rfind("--", 0) == 0 ? equals : word.npos);
    const Option* option = find(name);
    if (option == nullptr) {
      throw UsageError("unknown option " + Quoted(word) +
                       " (put \"--\" before an argument that begins with \"-\")");
    }
    if (values_.count(option->name) != 0) throw UsageError(option->name + " is given twice");
    if (!option->takesValue) {
      if (equals != word.npos) throw UsageError(option->name + " takes no value");
      values_[option->name];
    } else if (equals != word.npos) {
      values_[option->name] = word.substr(equals + 1);
    } else if (i + 1 < args.size()) {
      values_[option->name] = args[++i];
    } else {
      throw UsageError(option->name + " needs a value");
    }
  }
  // Check the operands against their names.
  std::size_t required = 0;
  bool variadic = false;
  for (const std::string& name : operands) {
    if (name.size() > 3 && name.compare(name.size() - 3, 3, "...") == 0) variadic = true;
    if (name.empty() || name[0] != '[') ++required;
  }
  if (operands_.size() < required) throw UsageError("missing " + operands[operands_.size()]);
  if (!variadic && operands_.size() > operands.size()) {
    throw UsageError("unexpected argument " + Quoted(operands_[operands.size()]));
  }
}

const std::string& ArgList::Value(const std::string& option, const std::string& fallback) const {
  const auto it = values_.find(option);
  return it == values_.end() ? fallback : it->second;
}

}  // namespace tvxhost
