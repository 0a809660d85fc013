// SPDX-License-Identifier: Apache-2.0
#include "support/init/InitTokenizer.h"

#include <optional>
#include <utility>

namespace korvane::test {
namespace {

class Tokenizer {
  public:
    std::vector<InitLine> read(const std::string& text) {
        for (const char c : text) {
            take(c);
            if (c == '\n') ++mNumber;
        }
        endText();
        return std::move(mLines);
    }

  private:
    enum class State { PLAIN, QUOTED, ESCAPE, COMMENT, CONTINUATION };

    static bool isBlank(char c) { return c == ' ' || c == '\t'; }

    void take(char c) {
        switch (mState) {
            case State::PLAIN:
                takePlain(c);
                break;
            case State::QUOTED:
                takeQuoted(c);
                break;
            case State::ESCAPE:
                takeEscaped(c);
                break;
            case State::COMMENT:
                takeComment(c);
                break;
            case State::CONTINUATION:
                takeContinued(c);
                break;
        }
    }

    void takePlain(char c) {
        if (isBlank(c)) {
            endWord();
        } else if (c == '\n') {
            endLine();
        } else if (c == '\r') {
            throw InitError(mNumber, "a carriage return");
        } else if (c == '#' && !mWord) {
            mState = State::COMMENT;
        } else if (c == '"') {
            mQuote = mNumber;
            add("");
            mState = State::QUOTED;
        } else if (c == '\\') {
            mState = State::ESCAPE;
        } else {
            add({c});
        }
    }

    void takeQuoted(char c) {
        if (c == '"') {
            mState = State::PLAIN;
        } else {
            add({c});
        }
    }

    void takeEscaped(char c) {
        mState = State::PLAIN;
        switch (c) {
            case 'n':
                add("\n");
                break;
            case 'r':
                add("\r");
                break;
            case 't':
                add("\t");
                break;
            case '\n':
                mState = State::CONTINUATION;
                break;
            case '\r':
                throw InitError(mNumber, "a carriage return");
            default:
                add({c});
        }
    }

    void takeComment(char c) {
        if (c != '\n') return;
        mState = State::PLAIN;
        endLine();
    }

    void takeContinued(char c) {
        if (mWord && isBlank(c)) throw InitError(mNumber, "blanks after a word's continuation");
        mState = State::PLAIN;
        takePlain(c);
    }

    void add(const std::string& text) {
        if (!mWord) mWord.emplace();
        *mWord += text;
        if (mLine.words.empty() && mLine.number == 0) mLine.number = mNumber;
    }

    void endWord() {
        if (mWord) mLine.words.push_back(*std::exchange(mWord, std::nullopt));
    }

    void endLine() {
        endWord();
        if (!mLine.words.empty()) mLines.push_back(std::move(mLine));
        mLine = {};
    }

    void endText() {
        if (mState == State::QUOTED) throw InitError(mQuote, "a quote that doesn't end");
        if (mState == State::ESCAPE) throw InitError(mNumber, "nothing after a backslash");
        endLine();
    }

    State mState = State::PLAIN;
    int mNumber = 1;
    int mQuote = 0;  // the line on which the last quote began
    std::optional<std::string> mWord;
    InitLine mLine;
    std::vector<InitLine> mLines;
};

}  // namespace

InitError::InitError(int line, const std::string& what)
    : std::runtime_error("line " + std::to_string(line) + ": " + what) {}

std::vector<InitLine> tokenizeInit(const std::string& text) {
    return Tokenizer().read(text);
}

}  // namespace korvane::test
