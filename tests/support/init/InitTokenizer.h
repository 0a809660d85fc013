// SPDX-License-Identifier: Apache-2.0
// Init's language as words: what an init file of the phone says once quotes, escapes and comments
// are gone.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace korvane::test {

/** What is wrong with a text in init's language, and the line it is on. */
class InitError : public std::runtime_error {
  public:
    InitError(int line, const std::string& what);
};

/** The words of one line; with continuations, it may span several lines of the file. */
struct InitLine {
    int number = 0;  // of the first word, counted from 1
    std::vector<std::string> words;
};

/**
 * The lines of a text that have words.
 *
 * A word ends at a blank, a tab or a line feed. Within double quotes everything is literal, even
 * the backslash: `\n` is a line feed only outside them. Outside, a backslash before n, r, t or a
 * backslash produces that character, before a line feed it continues the line, and before anything
 * else it produces that very character. `#` begins a comment only where a word may begin.
 *
 * Throws InitError for an unterminated quote, and for anything not known to mean the same on every
 * phone: a carriage return, blanks after a continuation within a word, a backslash that ends the
 * text.
 */
std::vector<InitLine> tokenizeInit(const std::string& text);

}  // namespace korvane::test
