"""Just enough of C++ to change it: tokens, brackets, blocks of code and their statements.

It relies on the layout that clang-format gives every source: a binary operator stands between
spaces, the brackets of a template and the signs of a reference or a pointer don't.
"""

import bisect
import re
from dataclasses import dataclass, field

TOKEN = re.compile(r'''
    (?P<space>\s+|//[^\n]*|/\*.*?\*/)
  | (?P<directive>(?<![^\n])[ \t]*\#(?:\\\n|[^\n])*)
  | (?P<string>(?:u8|u|U|L)?R"(?P<mark>[^(\s]*)\(.*?\)(?P=mark)"|(?:u8|u|U|L)?"(?:\\.|[^"\\\n])*")
  | (?P<char>'(?:\\.|[^'\\\n])+')
  | (?P<number>\.?\d(?:[eEpP][+-]|[\w.]|'(?=\w))*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<sign><<=|>>=|\.\.\.|->\*|::|->|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)
''', re.VERBOSE | re.DOTALL)

PAIRS = {'(': ')', '[': ']', '{': '}'}
SCOPES = {'namespace', 'class', 'struct', 'union', 'enum', 'extern'}
BEFORE_BLOCK = {')', ']', 'const', 'override', 'noexcept', 'else', 'do', 'try', 'mutable'}
DECLARING = {'const', 'constexpr', 'auto', 'static', 'using', 'typedef', 'static_assert', 'struct',
             'template', 'mutable', 'unsigned', 'friend', 'explicit', 'virtual'}
ASSIGNMENTS = {'=', '+=', '-=', '*=', '/=', '%=', '&=', '|=', '^=', '<<=', '>>='}


@dataclass
class Token:
    kind: str
    text: str
    start: int
    line: int

    @property
    def end(self):
        return self.start + len(self.text)


@dataclass
class Statement:
    """A statement that ends in a semicolon: tokens first to last, the semicolon included."""
    first: int
    last: int
    block: int  # the opening brace of its block
    position: int  # among the direct statements of the block; -1 as the body of an `if` or a loop
    kind: str = ''


@dataclass
class Source:
    text: str
    tokens: list = field(default_factory=list)
    partner: dict = field(default_factory=dict)  # bracket to bracket, both ways
    around: dict = field(default_factory=dict)  # opening bracket to the one that it is in
    blocks: list = field(default_factory=list)  # opening braces of code
    functions: list = field(default_factory=list)  # those that aren't inside another one
    statements: list = field(default_factory=list)
    conditions: list = field(default_factory=list)  # (first, last) tokens, without the brackets

    def __post_init__(self):
        self._lex()
        self._match()
        self._find_blocks()
        for block in self.blocks:
            self._split(block)
        self.statements.sort(key=lambda s: s.first)

    def _lex(self):
        newlines = [m.start() for m in re.finditer('\n', self.text)]
        for match in TOKEN.finditer(self.text):
            if match.lastgroup not in ('space', 'directive'):
                kind = 'string' if match.lastgroup == 'mark' else match.lastgroup
                line = bisect.bisect_left(newlines, match.start()) + 1
                self.tokens.append(Token(kind, match.group(), match.start(), line))

    def _match(self):
        waiting = []
        for i, token in enumerate(self.tokens):
            if token.kind != 'sign':
                continue
            if token.text in PAIRS:
                self.around[i] = waiting[-1] if waiting else None
                waiting.append(i)
            elif token.text in PAIRS.values() and waiting:
                other = waiting.pop()
                self.partner[i], self.partner[other] = other, i

    def _find_blocks(self):
        """Tells blocks of code from scopes and from lists of initial values."""
        end = -1
        for i, token in enumerate(self.tokens):
            if token.text != '{' or i not in self.partner:
                continue
            before = self.tokens[i - 1].text if i else ''
            head = self._head(i)
            nested = self.around[i] in self.blocks and before in (';', '{', '}', ':')
            if nested or before in BEFORE_BLOCK and not SCOPES & head:
                self.blocks.append(i)
                if i > end:
                    self.functions.append(i)
                    end = self.partner[i]

    def _head(self, brace):
        """The words between the statement before and this brace."""
        words, i = set(), brace - 1
        while i >= 0 and self.tokens[i].text not in (';', '{', '}'):
            if self.tokens[i].text in (')', ']'):
                i = self.partner.get(i, i)
            words.add(self.tokens[i].text)
            i -= 1
        return words

    def _split(self, brace):
        i, position, last = brace + 1, 0, self.partner[brace]
        while i < last:
            i = self._statement(i, brace, position)
            position += 1

    def _statement(self, i, block, position):
        """Notes the statement that begins at i; returns what follows it."""
        text = self.tokens[i].text
        if text == '{':
            return self.partner[i] + 1
        if text in ('case', 'default'):
            while self.tokens[i].text != ':':
                i += 1
            return i + 1
        if text == 'else' or text == 'do':
            return self._statement(i + 1, block, -1)
        if text in ('if', 'while', 'for', 'switch'):
            closing = self.partner[i + 1]
            self._condition(text, i + 2, closing - 1)
            return self._statement(closing + 1, block, -1)
        first = i
        while self.tokens[i].text != ';':
            i = self.partner[i] + 1 if self.tokens[i].text in PAIRS else i + 1
        self.statements.append(Statement(first, i, block, position, self._kind(first, i)))
        return i + 1

    def _condition(self, keyword, first, last):
        if keyword in ('if', 'while') and first <= last:
            self.conditions.append((first, last))
        elif keyword == 'for':
            parts = self.parts(first, last, ';')
            if len(parts) == 3 and parts[1][0] <= parts[1][1]:
                self.conditions.append(parts[1])

    def parts(self, first, last, separator=','):
        """The ranges of tokens between separators, outside of all brackets."""
        found, begin, i = [], first, first
        while i <= last:
            token = self.tokens[i]
            if token.text == separator:
                found.append((begin, i - 1))
                begin = i + 1
            if token.text in PAIRS or token.text == '<' and not self.spaced(i):
                i = self.closing(i)
            i += 1
        found.append((begin, last))
        return found

    def closing(self, i):
        if self.tokens[i].text in PAIRS:
            return self.partner.get(i, i)
        depth = 0
        for k in range(i, min(i + 60, len(self.tokens))):
            if not self.spaced(k):
                depth += {'<': 1, '>': -1, '>>': -2}.get(self.tokens[k].text, 0)
            if depth <= 0:
                return k
        return i

    def spaced(self, i):
        token = self.tokens[i]
        around = self.text[token.start - 1:token.start] + self.text[token.end:token.end + 1]
        return len(around) == 2 and around.isspace()

    def _kind(self, first, last):
        text = self.tokens[first].text
        if text in ('return', 'break', 'continue', 'goto', 'throw'):
            return text
        if self.declares(first, last):
            return 'declaration'
        outside = self.outside(first, last)
        if any(self.tokens[i].text in ASSIGNMENTS for i in outside):
            return 'assignment'
        return 'call' if self.tokens[last - 1].text == ')' else 'expression'

    def outside(self, first, last):
        """The tokens from first on, before last, that no bracket encloses."""
        i = first
        while i < last:
            yield i
            i = self.closing(i) + 1 if self.tokens[i].text in PAIRS else i + 1

    def declares(self, first, last):
        """Whether the tokens declare something: a type's name is followed by another name."""
        if self.tokens[first].text in DECLARING:
            return True
        for i in range(first, last):
            text = self.tokens[i].text
            if text in ('=', '(', '{'):
                return False
            follows = self.tokens[i + 1].kind == 'word'
            if follows and (self.tokens[i].kind == 'word' and text not in ('new', 'delete')):
                return True
            touches = i > first and self.tokens[i - 1].end == self.tokens[i].start
            if follows and touches and text in ('>', '*', '&'):
                return True
        return False

    def function_of(self, i):
        """The braces of the function that token i is in, or None."""
        for brace in self.functions:
            if brace < i < self.partner[brace]:
                return brace, self.partner[brace]
        return None

    def slice(self, first, last):
        """The text of tokens first to last."""
        return self.text[self.tokens[first].start:self.tokens[last].end]
