"""What became of the mutants: one file for each source, kept from run to run."""

import csv
from collections import Counter

OUTCOMES = ('killed', 'survived', 'equivalent', 'refused')
FIELDS = ('outcome', 'line', 'column', 'operator', 'original', 'changed', 'killer')


class Results:
    def __init__(self, out, texts, keep, write=True):
        self.folder = out / 'results'
        self.folder.mkdir(parents=True, exist_ok=True)
        self.survivors = out / 'survivors.tsv'
        self.texts = texts
        self.rows = {path: self._read(path) if keep else {} for path in texts}
        if write:
            for path in texts:
                self._start(path)

    def _file(self, path):
        return self.folder / (path.name + '.tsv')

    def _copy(self, path):
        return self.folder / (path.name + '.source')

    def _read(self, path):
        """Earlier results, unless the source has changed since."""
        if not self._copy(path).exists() or self._copy(path).read_text() != self.texts[path]:
            return {}
        with self._file(path).open(newline='') as file:
            return {self._key(row): row for row in csv.DictReader(file, delimiter='\t')}

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
        row = self.rows[path].get((mutant.line, mutant.column, mutant.original, mutant.changed))
        return row is not None and row['outcome'] != 'survived'

    def add(self, path, mutant, outcome, killer):
        row = {'outcome': outcome, 'line': mutant.line, 'column': mutant.column,
               'operator': mutant.operator, 'original': mutant.original,
               'changed': mutant.changed, 'killer': killer}
        self.rows[path][self._key(row)] = row
        with self._file(path).open('a', newline='') as file:
            csv.DictWriter(file, FIELDS, delimiter='\t').writerow(row)

    def report(self):
        """Shows the counts, writes the survivors; returns how large a part they are."""
        print(f'\n{"source":45}{"mutants":>9}{"killed":>9}{"survived":>9}{"%":>7}'
              f'{"equivalent":>12}{"refused":>9}')
        total = Counter()
        with self.survivors.open('w') as file:
            for path, rows in self.rows.items():
                counts = Counter(row['outcome'] for row in rows.values())
                total += counts
                if counts:
                    self._line(path.name, counts)
                for row in sorted(rows.values(), key=lambda r: int(r['line'])):
                    if row['outcome'] == 'survived':
                        words = [' '.join(row[f].split()) for f in ('operator', 'original',
                                                                    'changed')]
                        file.write(f'{path}:{row["line"]}\t' + '\t'.join(words) + '\n')
        self._line('all', total)
        return self._part(total)

    @staticmethod
    def _part(counts):
        return counts['survived'] / max(1, counts['survived'] + counts['killed'])

    def _line(self, name, counts):
        mutants = counts['survived'] + counts['killed']
        print(f'{name:45}{mutants:9}{counts["killed"]:9}{counts["survived"]:9}'
              f'{100 * self._part(counts):7.1f}{counts["equivalent"]:12}{counts["refused"]:9}')
