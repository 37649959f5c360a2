#pragma once

#include <cstddef>
#include <string>

namespace keyferry {

// A deterministic UTF-8 text of exactly `characters` code points mixing what people type: English and code
// (ASCII), accented Latin in both cases, Cyrillic, Greek, Chinese and Japanese, emoji with skin tones, ZWJ
// sequences and flags, combining marks, tabs, and CR, CRLF and LF line ends. Each script comes as a section
// of sentences, as messages in one language would; about a hundred distinct characters beyond ASCII.
std::string mixedSampleText(std::size_t characters);

// The same kinds of text from many more languages (Czech, Polish, Icelandic, Ukrainian, Korean, ...): about
// three hundred distinct characters beyond ASCII, more than the spare keycodes of a keyboard hold at once.
std::string manyScriptSampleText(std::size_t characters);

// Only what a US layout types on its own keys (English, code, every ASCII symbol, tabs, line ends), for
// routes that press the user's own keys.
std::string usLayoutSampleText(std::size_t characters);

// Chinese prose stand-in of exactly `characters` code points with `distinct` different ideographs (each at
// least once, when the text is long enough), spread as in running text, with a full-width comma or full stop
// every few characters and a line break every few sentences. Deterministic.
std::string chineseSampleText(std::size_t characters, std::size_t distinct);

// The text as it is typed: CRLF and then lone CR become LF.
std::string withTypedLineEnds(const std::string& text);

} // namespace keyferry
