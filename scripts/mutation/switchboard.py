"""All mutants of a source or header in one object: a variable decides, as the program runs, which one it is.

A statement becomes `if (mutant == 1) { ... } else if (mutant == 2) { ... } else { ... }`, an
expression the same with ?:. What can't be written like that, or is no C++ then, is left out, and
has to be compiled by itself.
"""

import re
from dataclasses import dataclass, field, replace

from cpp import Source

# What all choices of a site stand in, one of them, and what stands between them.
FORMS = {
    'statement': ('{ %s else { %s }}', 'if (korvane_mutant == %d) {\n%s\n}', ' else '),
    'condition': ('(%s : bool(%s))', 'korvane_mutant == %d ? bool(\n%s\n)', ' : '),
    'value': ('(%s : (%s))', 'korvane_mutant == %d ? (\n%s\n)', ' : '),
}
DECLARATION = 'extern "C" volatile int korvane_mutant;\n'
BEGIN, END = '/*<mutant %d*/', '/*mutant>*/'
VARIANT = re.compile(r'/\*<mutant (\d+)\*/|/\*mutant>\*/')
CHOOSING = re.compile(r'korvane_mutant == (\d+)')
RECORDS = ('static_assert', 'using', 'typedef', 'static', 'constexpr')
NO_MEMBERS = (*RECORDS, 'enum', 'template', 'virtual')


@dataclass
class Site:
    start: int
    end: int
    kind: str  # statement, condition or value
    mutants: list = field(default_factory=list)  # (number, mutant)
    inner: list = field(default_factory=list)  # sites

    def holds(self, start, end):
        return self.start <= start and end <= self.end


def sites_of(source):
    """The places where a choice can stand."""
    tokens = source.tokens
    for first, last in source.conditions:
        if not source.declares(first, last):
            yield Site(tokens[first].start, tokens[last].end, 'condition')
    for statement in source.statements:
        first, last = statement.first, statement.last
        if statement.kind != 'declaration':
            yield Site(tokens[first].start, tokens[last].end, 'statement')
        elif tokens[first].text not in RECORDS:
            for i in source.outside(first, last):
                if tokens[i].text == '=' and tokens[i + 1].text not in ('{', '['):
                    yield Site(tokens[i + 1].start, tokens[last - 1].end, 'value')
                    break
    yield from initial_values(source)


def initial_values(source):
    """Those that classes give their members: `= value;`, or the parts of `= {value, ...};`."""
    tokens = source.tokens
    for i, token in enumerate(tokens):
        if token.text != '=' or source.function_of(i) is not None:
            continue
        begin, end = i, i + 1
        while begin > 0 and tokens[begin - 1].text not in (';', '{', '}', ':'):
            begin -= 1
        while end < len(tokens) and tokens[end].text not in (';', ',', ')', '}'):
            end = source.closing(end) + 1
        if tokens[begin].text in NO_MEMBERS or end == len(tokens) or tokens[end].text != ';':
            continue
        parts = [(i + 1, end - 1)]
        if tokens[i + 1].text == '{':
            parts = source.parts(i + 2, end - 2)
        for first, last in parts:
            if first <= last and tokens[first].text != '{':
                yield Site(tokens[first].start, tokens[last].end, 'value')


def nest(sites):
    """Puts each site into the smallest one around it; returns the outermost ones."""
    outermost, open_sites = [], []
    for site in sorted(sites, key=lambda s: (s.start, -s.end)):
        while open_sites and not open_sites[-1].holds(site.start, site.end):
            open_sites.pop()
        (open_sites[-1].inner if open_sites else outermost).append(site)
        open_sites.append(site)
    return outermost


def place(sites, number, mutant):
    """Gives a mutant to the smallest site around it; False where there is none."""
    end = mutant.start + len(mutant.original)
    for site in sites:
        if site.holds(mutant.start, end):
            if not place(site.inner, number, mutant):
                site.mutants.append((number, mutant))
            return True
    return False


def statements_of(sites):
    for site in sites:
        if site.kind == 'statement':
            yield site
        yield from statements_of(site.inner)


def halves_of(mutant, text, begins, ends):
    """The two statements that a mutant exchanges, each with the other in its place; None where it
    isn't two statements that it exchanges, in which case it is none of begins and ends."""
    one = begins.get(mutant.start)
    other = ends.get(mutant.start + len(mutant.original))
    if mutant.operator != 'swap' or one is None or other is None:
        return None
    first, second = text[one.start:one.end], text[other.start:other.end]
    return ((one, replace(mutant, original=first, changed=second)),
            (other, replace(mutant, start=other.start, original=second, changed=first)))


class Switchboard:
    def __init__(self, text, mutants, first=1):
        """first: the number of the first mutant."""
        self.text = text
        self.outermost = nest(sites_of(Source(text)))
        self.numbers = {}
        self.refused = set()
        statements = list(statements_of(self.outermost))
        begins, ends = {s.start: s for s in statements}, {s.end: s for s in statements}
        for number, mutant in enumerate(mutants, first):
            halves = halves_of(mutant, text, begins, ends)
            for site, half in halves or ():
                site.mutants.append((number, half))
            if halves or place(self.outermost, number, mutant):
                self.numbers[mutant] = number
        self.mutants = {number: mutant for mutant, number in self.numbers.items()}

    def with_choices(self):
        """The text in which they can be chosen."""
        return self.render(self.outermost, 0, len(self.text))

    def render(self, sites, start, end):
        """The text from start to end, with these sites as choices."""
        parts, position = [], start
        for site in sites:
            parts += [self.text[position:site.start], self.choice(site)]
            position = site.end
        return ''.join(parts) + self.text[position:end]

    def choice(self, site):
        original = self.render(site.inner, site.start, site.end)
        alive = [(n, m) for n, m in site.mutants if self.mutants[n] in self.numbers]
        if not alive:
            return original
        around, one, between = FORMS[site.kind]
        chosen = [one % (n, f'{BEGIN % n}{self.variant(site, m)}{END}') for n, m in alive]
        return around % (between.join(chosen), original)

    def variant(self, site, mutant):
        end = mutant.start + len(mutant.original)
        return self.text[site.start:mutant.start] + mutant.changed + self.text[end:site.end]

    def leave_out(self, said):
        """Takes out those that the compiler speaks of; False if it speaks of none.

        said: of the text with the choices, and of nothing else.
        """
        by_line, current = {}, None
        for number, line in enumerate(self.with_choices().splitlines(), 1):
            numbers = [match[1] for match in VARIANT.finditer(line)]
            current = next((int(n) for n in numbers if n), current)
            choosing = CHOOSING.search(line)
            by_line[number] = current or choosing and int(choosing[1])
            if numbers and numbers[-1] is None:
                current = None
        found = False
        for match in re.finditer(r'^[^\s:]+:(\d+):\d+:( error)?', said, re.MULTILINE):
            mutant = self.mutants.get(by_line[int(match[1])])
            if mutant is None or mutant not in self.numbers:
                continue
            found = True
            if match[2] and self.in_statement(self.outermost, self.numbers[mutant]):
                self.refused.add(mutant)
            del self.numbers[mutant]
        return found

    def in_statement(self, sites, number):
        return any(site.kind == 'statement' if number in (n for n, _ in site.mutants)
                   else self.in_statement(site.inner, number) for site in sites)
