// A line of text built without printf: `list` formats a line for each of
// 100 000 rows, and printf's parsing of its format was the largest part of
// that. The buffer is kept from one line to the next. Used by one thread.
#ifndef DVR_KEEPER_TEXT_LINE_H
#define DVR_KEEPER_TEXT_LINE_H

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>

namespace dvrkeeper {

class TextLine {
public:
    // Empties the line, keeping its buffer.
    void clear() { mText.clear(); }
    const std::string &str() const { return mText; }
    // Writes the line to out with fwrite_unlocked (the caller is the
    // stream's only user or holds its lock).
    void write(std::FILE *out) const;

    TextLine &text(const char *text);
    TextLine &text(const std::string &text);
    // text in width characters, as printf's %-Ns (leftAligned) or %Ns.
    TextLine &padded(const std::string &text, int width, bool leftAligned);
    // value in at least width characters filled in front with fill, as
    // printf's %Nd or %0Nd.
    TextLine &integer(int64_t value, int width = 0, char fill = ' ');
    // value with precision decimals in at least width characters, as
    // printf's %N.Pf.
    TextLine &fixed(double value, int precision, int width = 0);
    // "YYYY-mm-dd HH:MM:SS".
    TextLine &dateTime(const std::tm &time);
    // text as a JSON string, quoted and escaped.
    TextLine &json(const std::string &text);

private:
    // The last length characters, moved right within width.
    void padFront(size_t length, int width, char fill);

    std::string mText;
};

}  // namespace dvrkeeper

#endif  // DVR_KEEPER_TEXT_LINE_H
