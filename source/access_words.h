#ifndef SORVANIC_SOURCE_ACCESS_WORDS_H
#define SORVANIC_SOURCE_ACCESS_WORDS_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "source/document.h"

// The words for what a rule lets somebody do to files, and the bits that the engine asks for when
// somebody does it. Some words cannot stand alone, because the engine asks for the same bit in two cases:
// such a rule would grant more than it says.

namespace source {

struct access_word {
    std::string_view word;
    std::uint32_t bits;
    std::string_view needs; ///< the word that its bits grant as well; empty: none
    std::string_view because;
};

inline constexpr std::uint32_t read_bit = 4;
inline constexpr std::uint32_t write_bit = 2;
inline constexpr std::uint32_t execute_bit = 1;
inline constexpr std::uint32_t append_bit = 8;
inline constexpr std::uint32_t delete_bit = 256;

// Opening for whatever purpose also asks for reading. Each change of a directory's entries asks for
// writing and executing of the directory, which the rule covers as well as what is in it.
inline constexpr access_word access_words[] = {
    {"none", 0, "", ""},
    {"read", read_bit, "", ""},
    {"list", read_bit, "read", "listing a directory and reading what lies below it are one bit"},
    {"execute", execute_bit | read_bit, "read", "executing a file reads it"},
    {"write", write_bit | append_bit | read_bit, "read", "opening a file to write also asks for reading"},
    {"append", append_bit | write_bit | read_bit, "write", "opening a file to append also asks for writing"},
    {"create", write_bit | append_bit | read_bit | execute_bit, "write",
     "who may change a directory's entries may also write to what lies below it"},
    {"delete", delete_bit | write_bit | append_bit | read_bit | execute_bit, "create",
     "removing asks for the same bits of the directory as creating"},
    {"edit", delete_bit | write_bit | append_bit | read_bit | execute_bit, "", ""},
};

/// The mask that the words of a rule make together. Words that are unknown, or would grant more than they
/// say, go to `found`.
std::uint32_t mask_of(const word& whose, std::span<const word> words, findings& found);

/// The fewest words that make this mask, joined by ", "; the number itself when no words do.
std::string words_of(std::uint32_t mask);

} // namespace source

#endif
