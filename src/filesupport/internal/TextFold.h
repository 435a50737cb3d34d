// filesupport/internal/TextFold.h: the text folds that path comparison needs.
#pragma once

#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::filesupport::internal {

// Canonical composition (NFC).
UTF16String ComposeNfc(const UTF16String& text);
// Full case folding.
UTF16String FoldCase(const UTF16String& text);
// Case fold, then full-width forms to their plain ones and katakana to
// hiragana. False when the text can't be folded.
bool FoldForFileNameCompare(const UTF16String& text, UTF16String& out);

}  // namespace tvxcore::filesupport::internal
