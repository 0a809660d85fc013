"""What became of the mutants: one file for each source, kept from run to run."""

import csv
import re
from collections import Counter
from pathlib import Path

from cpp import Source
from operators import mutants_of

FIELDS = ('outcome', 'line', 'column', 'operator', 'original', 'changed', 'killer')
HERE = Path(__file__).resolve().parent
EQUIVALENT = HERE / 'equivalent.tsv'
HARDWARE = HERE.parent.parent / 'hardware'


def listed_equivalents():
    """Those that nobody can observe, for the reasons in the list: (source, line, mutated line)."""
    listed = set()
    for line in EQUIVALENT.read_text().splitlines():
        if line and not line.startswith('#'):
            listed.add(tuple(line.split('\t')[:3]))
    return listed


def code_of(text):
    """What the compiler is given of a source: the same without its comments and line breaks."""
    directives = re.findall(r'^[ \t]*#(?:\\\n|[^\n])*', text, re.MULTILINE)
    return directives, [token.text for token in Source(text).tokens]


def listed_in_vain(mutants):
    """What the list says of these sources and they don't have, or of none that there is; mutants: of
    each path."""
    found = {(path.name, m.before, m.after) for path, ms in mutants.items() for m in ms}
    looked_at = {path.name for path in mutants}
    others = {path.name for path in HARDWARE.rglob('*')} - looked_at
    return sorted(key for key in listed_equivalents() - found if key[0] not in others)


def report_listed_in_vain(mutants):
    """Shows them; returns whether there are any."""
    vain = listed_in_vain(mutants)
    for name, before, after in vain:
        print(f'equivalent.tsv: no such mutant: {name}: {before} -> {after}')
    return bool(vain)


class Results:
    def __init__(self, out, texts, keep, write=True):
        self.folder = out / 'results'
        self.folder.mkdir(parents=True, exist_ok=True)
        self.survivors = out / 'survivors.tsv'
        self.texts = texts
        self.mutants = {path: {self._place(m): m for m in mutants_of(text)}
                        for path, text in texts.items()}
        self.listed = listed_equivalents()
        self.rows = {path: self._read(path) if keep else {} for path in texts}
        if write:
            for path in texts:
                self._start(path)

    def _file(self, path):
        return self.folder / (path.name + '.tsv')

    def _copy(self, path):
        return self.folder / (path.name + '.source')

    def _read(self, path):
        """Earlier results, unless the source has changed since in more than its comments."""
        if not self._copy(path).exists():
            return {}
        earlier, text = self._copy(path).read_text(), self.texts[path]
        if earlier != text and code_of(earlier) != code_of(text):
            return {}
        now = dict(zip((self._place(m) for m in mutants_of(earlier)), self.mutants[path].values()))
        rows = {}
        with self._file(path).open(newline='') as file:
            for row in csv.DictReader(file, delimiter='\t'):
                mutant = now.get(self._key(row))
                if mutant is not None:
                    row.update(line=mutant.line, column=mutant.column, original=mutant.original,
                               changed=mutant.changed)
                    rows[self._key(row)] = row
        return rows

    @staticmethod
    def _place(mutant):
        return mutant.line, mutant.column, mutant.original, mutant.changed

    @staticmethod
    def _key(row):
        return int(row['line']), int(row['column']), row['original'], row['changed']

    def _start(self, path):
        self._copy(path).write_text(self.texts[path])
        with self._file(path).open('w', newline='') as file:
            writer = csv.DictWriter(file, FIELDS, delimiter='\t')
            writer.writeheader()
            writer.writerows(self.rows[path].values())

    def settled(self, path, mutant):
        """Whether there is nothing left to find out about it."""
        row = self.rows[path].get(self._place(mutant))
        return row is not None and self._outcome(path, row) != 'survived'

    def add(self, path, mutant, outcome, killer):
        row = {'outcome': outcome, 'line': mutant.line, 'column': mutant.column,
               'operator': mutant.operator, 'original': mutant.original,
               'changed': mutant.changed, 'killer': killer}
        self.rows[path][self._key(row)] = row
        with self._file(path).open('a', newline='') as file:
            csv.DictWriter(file, FIELDS, delimiter='\t').writerow(row)

    def _outcome(self, path, row):
        if row['outcome'] != 'survived':
            return row['outcome']
        mutant = self.mutants[path].get(self._key(row))
        return 'listed' if mutant and self.lists(path, mutant) else 'survived'

    def lists(self, path, mutant):
        """Whether the list says why nobody can observe it."""
        return (path.name, mutant.before, mutant.after) in self.listed

    def report(self):
        """Shows the counts, writes the survivors; returns how large a part they are."""
        print(f'\n{"source":36}{"mutants":>8}{"killed":>8}{"survived":>9}{"%":>6}'
              f'{"equivalent":>12}{"listed":>8}{"refused":>9}')
        total = Counter()
        with self.survivors.open('w') as file:
            for path, rows in self.rows.items():
                counts = Counter(self._outcome(path, row) for row in rows.values())
                total += counts
                if counts:
                    self._line(path.name, counts)
                for row in sorted(rows.values(), key=lambda r: int(r['line'])):
                    mutant = self.mutants[path].get(self._key(row))
                    if mutant and self._outcome(path, row) == 'survived':
                        words = [path.name, mutant.before, mutant.after, str(mutant.line)]
                        file.write('\t'.join(words) + '\n')
        self._line('all', total)
        report_listed_in_vain({path: found.values() for path, found in self.mutants.items()})
        return self._part(total)

    @staticmethod
    def _part(counts):
        return counts['survived'] / max(1, counts['survived'] + counts['killed'])

    def _line(self, name, counts):
        mutants = counts['survived'] + counts['killed']
        print(f'{name:36}{mutants:8}{counts["killed"]:8}{counts["survived"]:9}'
              f'{100 * self._part(counts):6.1f}{counts["equivalent"]:12}{counts["listed"]:8}'
              f'{counts["refused"]:9}')
