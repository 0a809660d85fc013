"""What is changed: every mutant that a source has, each one a small mistake that compiles."""

import re
from collections import Counter
from dataclasses import dataclass, replace

from cpp import ASSIGNMENTS, Source

SWAPPED = {
    '<': ('<=', '>='), '<=': ('<', '>'), '>': ('>=', '<='), '>=': ('>', '<'),
    '==': ('!=',), '!=': ('==',), '&&': ('||',), '||': ('&&',),
    '+': ('-',), '-': ('+',), '*': ('/',), '/': ('*',), '%': ('/',),
    '&': ('|',), '|': ('&',), '^': ('&',), '<<': ('>>',), '>>': ('<<',),
    '+=': ('-=',), '-=': ('+=',), '*=': ('/=',), '/=': ('*=',),
    '&=': ('|=',), '|=': ('&=',), '<<=': ('>>=',), '>>=': ('<<=',), '++': ('--',), '--': ('++',),
}
COMPARISONS = {'<', '<=', '>', '>=', '==', '!='}
BINARY = set(SWAPPED) - ASSIGNMENTS - {'++', '--'}
OTHER_WORD = {
    'true': 'false', 'false': 'true', 'OK': 'UNKNOWN_ERROR', 'NO_ERROR': 'UNKNOWN_ERROR',
    'UNKNOWN_ERROR': 'OK', 'BAD_VALUE': 'INVALID_OPERATION', 'INVALID_OPERATION': 'BAD_VALUE',
    'NAME_NOT_FOUND': 'BAD_VALUE', 'EINVAL': 'EIO', 'EIO': 'EINVAL', 'ENOENT': 'EINVAL',
    'ENOMEM': 'EINVAL', 'ENODEV': 'EINVAL', 'EOVERFLOW': 'EINVAL', 'EL2HLT': 'EINVAL',
}
COMMUTATIVE = {'min', 'max', 'swap'}
LOG = re.compile(r'ALOG[VDIWE]$')
# Before these a minus has one operand only.
OPERATORS = set(SWAPPED) | ASSIGNMENTS | {'(', '[', '{', ',', ';', '?', ':', '!', 'return', 'case'}


def one_line(text):
    return ' '.join(text.split())


@dataclass(frozen=True)
class Mutant:
    line: int
    column: int
    operator: str
    start: int  # in the text, where `original` is replaced by `changed`
    original: str
    changed: str
    lines: tuple = ()  # of the statement that it is in
    before: str = ''  # the whole lines, spaces as one: what a list of mutants says
    after: str = ''  # numbered where the same change of the same lines is there before

    def apply(self, text):
        return text[:self.start] + self.changed + text[self.start + len(self.original):]

    def __str__(self):
        return f'{self.line}: {one_line(self.original)} -> {one_line(self.changed) or "(nothing)"}'


class Finder:
    def __init__(self, text):
        self.source = Source(text)
        self.tokens = self.source.tokens
        self.mutants = {}

    def find(self):
        self.constants_and_operators()
        self.conditions()
        self.statements()
        self.arguments()
        found = sorted(self.mutants.values(), key=lambda m: (m.start, m.operator))
        seen = Counter()
        for i, mutant in enumerate(found):
            key = mutant.before, mutant.after
            seen[key] += 1
            if seen[key] > 1:
                found[i] = replace(mutant, after=f'{mutant.after} ({seen[key]})')
        return found

    def add(self, operator, first, last, changed):
        """Tokens first to last become `changed`."""
        start = self.tokens[first].start
        original = self.source.text[start:self.tokens[last].end]
        text = self.source.text
        line_start = text.rfind('\n', 0, start) + 1
        line_end = text.find('\n', start + len(original))
        after = text[line_start:start] + changed + text[start + len(original):line_end]
        mutant = Mutant(self.tokens[first].line, start - line_start + 1, operator, start, original,
                        changed, self.lines_around(first), one_line(text[line_start:line_end]),
                        one_line(after))
        self.mutants.setdefault((start, original, changed), mutant)

    def lines_around(self, i):
        """The lines of the smallest statement or condition around a token; at least its own."""
        ranges = [(s.first, s.last) for s in self.source.statements] + self.source.conditions
        around = [r for r in ranges if r[0] <= i <= r[1]]
        first, last = min(around, key=lambda r: r[1] - r[0], default=(i, i))
        return tuple(range(self.tokens[first].line, self.tokens[last].line + 1))

    def constants_and_operators(self):
        skipped = {i for s in self.source.statements for i in range(s.first, s.last + 1)
                   if self.tokens[s.first].text == 'static_assert'}
        for i, token in enumerate(self.tokens):
            if i in skipped:
                continue
            if token.kind == 'number':
                self.number(i)
            elif token.kind == 'string':
                self.string(i)
            elif token.kind == 'word' and token.text in OTHER_WORD:
                self.add('word', i, i, OTHER_WORD[token.text])
            elif token.kind == 'sign':
                self.sign(i)

    def number(self, i):
        text = self.tokens[i].text
        if re.fullmatch(r'\d[\d.]*(e\d+)?f?', text) and not text.isdigit():
            self.add('constant', i, i, '2.0f' if text == '1.0f' else f'({text} + 1)')
        elif (number := re.fullmatch(r'(0[xX][0-9a-fA-F]+|\d+)[uUlL]*', text)):
            value = int(number[1], 0)
            self.add('constant', i, i, str(value + 1))
            if value > 0:
                self.add('constant', i, i, str(value - 1))

    def string(self, i):
        # The texts of the log are for people, the names of C linkage for the linker.
        if self.in_log(i) or self.tokens[i - 1].text == 'extern':
            return
        text = self.tokens[i].text
        opening = re.match(r'(?:u8|u|U|L)?(?:R"[^(]*\(|")', text).end()
        self.add('constant', i, i, text[:opening] + '#' + text[opening:])

    def in_log(self, i):
        return any(s.first <= i <= s.last and LOG.match(self.tokens[s.first].text)
                   for s in self.source.statements)

    def sign(self, i):
        text = self.tokens[i].text
        before = self.tokens[i - 1].text if i else ';'
        if text == '!' and self.tokens[i + 1].text not in ('=',):
            self.add('not', i, i, '')
        elif text == '-' and before in OPERATORS:
            self.add('minus', i, i, '')
        elif text == '?':
            self.choice(i)
        elif text in SWAPPED and (text not in BINARY or self.source.spaced(i)):
            for other in SWAPPED[text]:
                self.add('operator', i, i, other)

    def choice(self, i):
        """The condition of a ?: reaches back to what has a lower precedence than it."""
        first = i
        while first > 0:
            text = self.tokens[first - 1].text
            if text in ASSIGNMENTS or text in ('return', '(', ',', ';', '{', '}', '?', ':', '['):
                break
            first = self.source.partner[first - 1] if text in (')', ']') else first - 1
        self.negate(first, i - 1)

    def conditions(self):
        for first, last in self.source.conditions:
            if self.source.declares(first, last):
                self.negate_declared(first, last)
            else:
                self.negate(first, last)

    def negate_declared(self, first, last):
        equals = next(i for i in range(first, last) if self.tokens[i].text == '=')
        name = self.tokens[equals - 1].text
        self.add('condition', first, last, f'{self.source.slice(first, last)}; !{name}')

    def negate(self, first, last):
        operators = [self.tokens[i].text for i in self.source.outside(first, last + 1)
                     if self.source.spaced(i)]
        if not operators and self.tokens[first].text == '!':
            return  # the same as without the `!`
        if len(operators) == 1 and operators[0] in COMPARISONS:
            return  # the same as with the opposite comparison
        self.add('condition', first, last, f'!({self.source.slice(first, last)})')

    def statements(self):
        by_place = {(s.block, s.position): s for s in self.source.statements if s.position >= 0}
        for statement in self.source.statements:
            self.drop(statement)
            if statement.kind == 'return':
                self.return_default(statement)
            following = by_place.get((statement.block, statement.position + 1))
            if statement.position >= 0 and following is not None:
                self.swap(statement, following)

    def drop(self, statement):
        if statement.kind in ('call', 'assignment', 'expression', 'continue', 'throw'):
            self.add('drop', statement.first, statement.last, '{}')
        elif statement.kind == 'return':
            function = self.source.function_of(statement.first)
            if function is not None and statement.last + 1 != function[1]:
                self.add('drop', statement.first, statement.last, '{}')

    def return_default(self, statement):
        first, last = statement.first + 1, statement.last - 1
        value = self.source.slice(first, last) if first <= last else ''
        plain = re.fullmatch(r'|-?[\d.]+f?|""|true|false|nullptr|\{\}|-?[A-Z][A-Z0-9_]+|Void\(\)',
                             value)
        if not plain:
            self.add('return', first, last, '{}')

    def swap(self, one, other):
        """Exchanges two neighbours; two assignments alone make no difference."""
        kinds = {one.kind, other.kind}
        if not kinds <= {'call', 'assignment', 'expression'} or 'call' not in kinds:
            return
        if any(LOG.match(self.tokens[s.first].text) for s in (one, other)):
            return
        self.add('swap', one.first, other.last, self.source.slice(other.first, other.last) + ' ' +
                 self.source.slice(one.first, one.last))

    def arguments(self):
        for i, token in enumerate(self.tokens):
            if token.text != '(' or self.source.function_of(i) is None or \
                    self.tokens[i - 1].kind != 'word' or self.tokens[i - 1].text in COMMUTATIVE:
                continue
            parts = self.source.parts(i + 1, self.source.partner[i] - 1)
            if LOG.match(self.tokens[i - 1].text):
                parts = parts[1:]
            for one, other in zip(parts, parts[1:]):
                self.exchange(one, other)

    def exchange(self, one, other):
        first, second = self.source.slice(*one), self.source.slice(*other)
        if first == second:
            return
        between = self.source.text[self.tokens[one[1]].end:self.tokens[other[0]].start]
        self.add('arguments', one[0], other[1], second + between + first)


def mutants_of(text):
    """All mutants of a source, in its order."""
    return Finder(text).find()
