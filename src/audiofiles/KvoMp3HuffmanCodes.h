#pragma once

namespace kvo
{

/**
    The code words of one Layer III Huffman code table, as the standard lists them: one text
    per row, each holding blank-separated words of '0' and '1'. For the big-value tables row x
    holds the words of y = 0 upward; for the two count1 tables the 16 words of v w x y = 0000
    to 1111 run in one row.
*/
struct Mp3HuffmanCodeList
{
    const char* const* rows = nullptr;
    int numRows = 0;
    int wordsPerRow = 0;
};

/** Table numbers with a code list of their own: 1-3, 5-13, 15, 16 and 24 (16 and 24 serve their
    linbits siblings); count1 tables A and B are numbers 32 and 33. Other numbers give an empty list. */
constexpr int mp3Count1TableA = 32;
constexpr int mp3Count1TableB = 33;

Mp3HuffmanCodeList GetMp3HuffmanCodes(int table) noexcept;

} // namespace kvo
