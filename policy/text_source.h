#ifndef SORVANIC_POLICY_TEXT_SOURCE_H
#define SORVANIC_POLICY_TEXT_SOURCE_H

#include <cstddef>

#include "platform/kernel/scoped.h"

/// A text policy file while it is read. At the end of the scope it is closed, and the work
/// file of an encoded one emptied, in every case. May sleep throughout; no two may be alive for
/// one work file.
class text_source : kernel::not_copied {
public:
    /// The most characters a line can have.
    static constexpr std::size_t piece = 1022;

    /// The plain file at `path`.
    explicit text_source(const char* path);

    /// The encoded file at `encoded`, which is decoded into the work file at `work` and read
    /// there. `work` must outlive the object.
    text_source(const char* encoded, const char* work);

    /// Whether the file to be read could be opened.
    bool is_open() const { return file_.is_open(); }

    /// The next line that is not empty, does not begin with "#" and has at most `longest`
    /// characters, without its newline; valid until the next call, and the caller may write
    /// into it. A zero byte in the file ends the line it is in. Null at the end of the file, at
    /// a read error, and when there was no memory for a line.
    ///
    /// A line of more than `piece` characters counts as several, cut after each `piece`: they
    /// are judged one by one, so the tail of a long comment is a line of its own.
    char* next_line(std::size_t longest = piece);

    /// The number of the line that next_line returned last, from 1. Comments and empty lines count as in an
    /// editor; the pieces of a long line share its number.
    kernel::u32 line_number() const { return line_number_; }

private:
    /// The work file's content, from the decoding to the emptying. A null `work` is none.
    class decoded : kernel::not_copied {
    public:
        decoded(const char* encoded, const char* work);
        ~decoded();

    private:
        const char* work_;
    };

    // In the order of construction; destruction runs the other way round.
    decoded decoded_;
    kernel::open_file file_;
    bool has_text_;
    kernel::kmem<char> line_;
    kernel::u32 line_number_ = 0;
    bool line_goes_on_ = false; ///< the last piece did not end its line
};

#endif
