// SPDX-License-Identifier: Apache-2.0
// Init's language as words: what a file of the phone's init says once quotes, escapes and comments
// are gone.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace korvane::test {

/** What is wrong with a text of init's language, with the line it stands on. */
class InitError : public std::runtime_error {
  public:
    InitError(int line, const std::string& what);
};

/** The words of one line; with its continuations, a line of words may be several of the file. */
struct InitLine {
    int number = 0;  // of the first word, counted from 1
    std::vector<std::string> words;
};

/**
 * The lines of a text that hold words.
 *
 * A word ends at a blank, a tab or a line feed. Within double quotes everything stands for itself,
 * the backslash too: `\n` is a line feed only outside of them. Outside, a backslash before n, r, t
 * or a backslash makes that character, before a line feed it continues the line, before anything
 * else it makes that very character. `#` begins a comment only where a word may begin.
 *
 * Throws InitError for a quote that doesn't end, and for what isn't known to mean the same on every
 * phone: a carriage return, blanks after a continuation within a word, a backslash that ends the
 * text.
 */
std::vector<InitLine> tokenizeInit(const std::string& text);

}  // namespace korvane::test
