"""Where mutants are tried: a copy of the tree, built as usual, in which one source at a time is
compiled anew and the test programs that pin it are linked anew and run.
"""

import collections
import functools
import gzip
import hashlib
import json
import os
import re
import shlex
import shutil
import signal
import subprocess
import threading
import time
from concurrent import futures
from pathlib import Path

import switchboard
from operators import mutants_of

HERE = Path(__file__).resolve().parent
CHANGED_FOLDERS = ('hardware', 'tests')  # each worker has its own copy of these
# It takes a member from the first library that has it, wherever the need for it comes up.
LINKER = ('-fuse-ld=lld', '-Wl,--strip-debug', '-Wl,--threads=1')
LIBRARIES = ('libcameradesktop.a', 'libkorjsonutils.a')


class BuildError(Exception):
    pass


def run(command, **options):
    done = subprocess.run(command, capture_output=True, text=True, errors='replace', **options)
    if done.returncode != 0:
        raise BuildError(f'{shlex.join(map(str, command))}\n{done.stdout[-2000:]}'
                         f'{done.stderr[-4000:]}')
    return done.stdout


class Unit:
    """A source as it is compiled."""

    def __init__(self, entry, bench):
        self.source = Path(entry['file'])
        words = shlex.split(entry['command'])
        # Without the launcher in front and without debug information.
        begin = next(i for i, word in enumerate(words) if re.search(r'(\+\+|g\+\+-\d+)$', word))
        self.object = words[words.index('-o') + 1]
        dropped = {'-o', self.object, '-c', entry['file']}
        self.compiler = [w for w in words[begin:] if w not in dropped and
                         not re.fullmatch(r'-[gO]\w*', w)]
        self.bench = bench
        self.dependencies = [self.source]  # and the project's headers that it includes
        self.optimised = None  # what it is compiled to for the comparison with mutants

    def preamble(self, level):
        """The options that include what comes from outside of the project, compiled already."""
        defined = [line for line in self.source.read_text().splitlines()
                   if re.match(r'#define LOG_(?!TAG)', line)]
        return self.bench.preamble((tuple(self.compiler), tuple(defined), level))

    def includes(self):
        """What it and the project's headers include from outside of the project."""
        own = {path.name for path in self.dependencies}
        for path in self.dependencies:
            for line in path.read_text().splitlines():
                match = re.match(r'#include <(.*/)?([^/>]+)>', line)
                if match and match[2] not in own:
                    yield line

    def compile(self, output, folder=None, level='-O0', options=()):
        """Compiles it, as it stands in a worker's folder; returns why not, '' if all is well."""
        words = [*self.compiler, level, *self.preamble(level), *options, '-c', str(self.source),
                 '-o', str(output)]
        if folder is not None:
            words = [self.bench.relocate(word, folder) for word in words]
        return self.call(words)

    def call(self, words):
        done = subprocess.run(words, cwd=self.bench.build, capture_output=True, text=True)
        return (done.stderr or 'no words') if done.returncode != 0 else ''


class Program:
    """A test program."""

    def __init__(self, name, link):
        self.name = name
        self.link = link
        self.seconds = 1.0  # of a run without mutants
        self.spent = collections.Counter()  # seconds, with mutants of a source
        self.kills = collections.Counter()

    @property
    def timeout(self):
        return 10 + 10 * self.seconds

    def link_command(self, output, replaced, others=()):
        """The command that links it with new objects.

        replaced: by the names of those that they stand for; others: linked in any case. The
        members of libraries come as a library in front of the others, which then keep theirs.
        """
        words = [replaced.get(word, word) for word in self.link]
        members = [new for old, new in replaced.items() if old not in self.link]
        archive = f'{output}.a'
        Path(archive).unlink(missing_ok=True)
        if members:
            run(['ar', 'qcs', archive, *members])
            others = [*others, archive]
        words[words.index('-o') + 1] = str(output)
        first = next(i for i, word in enumerate(words) if word.endswith('.a'))
        words[first:first] = others
        return words


class Choice:
    """The test programs with all mutants of some files that can be chosen as they run."""

    # Where control goes on to is another matter with the choices, and what is no constant any more.
    LENIENT = ('-Wno-error=implicit-fallthrough', '-Wno-error=return-type', '-Wno-narrowing')

    def __init__(self, bench, name, paths):
        self.folder = bench.out / 'choice' / name
        shutil.rmtree(self.folder, ignore_errors=True)
        bench.copy_changed(self.folder)
        self.bench = bench
        self.boards, count = {}, 0
        for path in paths:
            text = (self.folder / path).read_text()
            mutants = mutants_of(text)
            self.boards[path] = switchboard.Switchboard(text, mutants, count + 1)
            count += len(mutants)
        # Those of the service first, which have most to say against a mutant.
        self.units = sorted({u.object: u for path in paths for u in bench.units_of(path)}.values(),
                            key=bench.is_service, reverse=True)
        self.objects = {u.object: str(self.folder / f'{n}-{u.source.name}.o')
                        for n, u in enumerate(self.units)}
        self.compiled = {}  # objects to the texts that are in them
        self.usable = self.compile()
        self.lock = threading.Lock()
        self.linked = {}

    def compile(self):
        """Leaves out mutants until all compiles; returns whether that came to be."""
        while any(board.numbers for board in self.boards.values()):
            texts = {path: board.with_choices() for path, board in self.boards.items()}
            for path, text in texts.items():
                (self.folder / path).write_text(text)
            said = self.attempt(texts)
            if not said:
                return True
            left_out = [board.leave_out('\n'.join(line for line in said.splitlines()
                                                  if line.startswith(f'{self.folder / path}:')))
                        for path, board in self.boards.items()]
            if not any(left_out):
                self.bench.say(f'no choice in {self.folder.name}: {said[:2000]}')
                return False
        return False

    def attempt(self, texts):
        """Compiles what the texts are in; returns what is said against them, at least the first."""
        for service in (True, False):
            units = [u for u in self.units if self.bench.is_service(u) == service]
            with futures.ThreadPoolExecutor(os.cpu_count()) as pool:
                said = ''.join(pool.map(lambda u: self.compile_unit(u, texts), units))
            if said:
                return said
        return ''

    def compile_unit(self, unit, texts):
        inside = [text for path, text in texts.items()
                  if self.bench.tree / path in unit.dependencies]
        if self.compiled.get(unit.object) == inside:
            return ''
        said = unit.compile(self.objects[unit.object], self.folder, '-O0', [
            *self.LENIENT, '-include', str(self.bench.out / 'choice.h')])
        if not said:
            self.compiled[unit.object] = inside
        return said

    def number(self, path, mutant):
        """0 for one that can't be chosen."""
        return self.boards[path].numbers.get(mutant, 0) if self.usable else 0

    def refuses(self, path, mutant):
        """Whether the compiler does."""
        return mutant in self.boards[path].refused

    def binary(self, program):
        """None when the program fails even without a mutant."""
        with self.lock:
            if program.name not in self.linked:
                output = self.bench.place_for(self.folder, program)
                objects = {u.object: self.objects[u.object] for u in self.units
                           if self.bench.is_service(u) or u.object in program.link}
                run(program.link_command(output, objects, [str(self.bench.out / 'choice.o')]),
                    cwd=self.bench.build)
                # More than once: on a machine with much else to do a wait may be over too soon.
                passed = any(self.bench.passes(output, program.timeout) for _ in range(3))
                if not passed:
                    self.bench.say(f'{program.name} fails without any mutant: it tells nothing')
                self.linked[program.name] = output if passed else None
            return self.linked[program.name]


class Bench:
    def __init__(self, root, out, say, headers):
        """headers: those whose mutants will be chosen."""
        self.root, self.out, self.say, self.headers = root, out, say, headers
        self.tree = out / 'tree'
        self.build = self.tree / 'build'
        self.lock = threading.Lock()
        self.choices = {}
        self.preamble_lock = threading.Lock()
        self.preambles = {}

    def relocate(self, word, folder):
        for name in CHANGED_FOLDERS:
            word = word.replace(f'{self.tree}/{name}/', f'{folder}/{name}/')
            word = re.sub(rf'{re.escape(str(self.tree))}/{name}$', f'{folder}/{name}', word)
        return word

    def prepare(self):
        self.copy()
        self.say('building the copy')
        build = {'cwd': self.tree, 'env': {**os.environ, 'BUILD': 'build'}}
        run(['scripts/build', 'libkorjsonutils'], **build)  # for the commands
        self.read_commands()
        run(['scripts/build', *self.programs], **build)
        self.read_dependencies()
        self.know_programs()
        self.copy_changed(self.out / 'original')
        (self.out / 'choice.h').write_text(switchboard.DECLARATION)
        run(['g++', '-c', str(HERE / 'mutant_choice.cpp'), '-o', str(self.out / 'choice.o')])

    def choice(self, path):
        """The programs with all mutants of a source, or of the headers, most of which come into
        most programs."""
        name = 'headers' if path.suffix == '.h' else path.name
        with self.lock:
            if name not in self.choices:
                paths = self.headers if path.suffix == '.h' else [path]
                self.choices[name] = Choice(self, name, paths)
            return self.choices[name]

    @functools.lru_cache(None)
    def placed(self, path):
        """The mutants of a source for which a choice has a place."""
        if path.suffix == '.h' and path not in self.headers:
            return frozenset()
        text = (self.tree / path).read_text()
        return frozenset(switchboard.Switchboard(text, mutants_of(text)).numbers)

    def place_for(self, folder, program):
        """Where a program finds those that it starts, as in the build folder."""
        (folder / 'tests').mkdir(exist_ok=True)
        if not (folder / 'bin').exists():
            (folder / 'bin').symlink_to(self.build / 'bin')
        return folder / 'tests' / program.name

    def copy_changed(self, folder):
        shutil.rmtree(folder, ignore_errors=True)
        for name in CHANGED_FOLDERS:
            shutil.copytree(self.tree / name, folder / name)

    def copy(self):
        """Brings the copy up to date, touching only what differs."""
        names = run(['git', 'ls-files', '-z'], cwd=self.root).split('\0')[:-1]
        names = [n for n in names if (self.root / n).is_file()]
        for name in names:
            source, target = self.root / name, self.tree / name
            if not target.exists() or source.read_bytes() != target.read_bytes():
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(source, target)
        for folder in CHANGED_FOLDERS:
            for path in (self.tree / folder).rglob('*'):
                if path.is_file() and str(path.relative_to(self.tree)) not in names:
                    path.unlink()
        state = hashlib.sha256()
        for name in sorted(names):
            if not name.startswith(('docs/', 'scripts/')):
                state.update(name.encode() + (self.tree / name).read_bytes())
        self.state = state.hexdigest()[:16]

    def read_commands(self):
        self.programs = {}
        used = set()  # objects that come into a program, by themselves or in a library
        for line in run(['ninja', '-t', 'commands', 'native_tests'], cwd=self.build).splitlines():
            match = re.search(r' -o tests/(\w+) ', line)
            if any(library in line for library in LIBRARIES) and (match or '/ar qc ' in line):
                command = shlex.split(line.removeprefix(': && ').removesuffix(' && :'))
                used.update(command)
                if match:
                    self.programs[match[1]] = Program(match[1], [*command, *LINKER])
        self.units = {}
        for entry in json.loads((self.build / 'compile_commands.json').read_text()):
            unit = Unit(entry, self)
            if unit.source.is_relative_to(self.tree) and unit.object in used:
                self.units[unit.object] = unit

    def read_dependencies(self):
        unit = None
        for line in run(['ninja', '-t', 'deps'], cwd=self.build).splitlines():
            if not line.startswith(' '):
                unit = self.units.get(line.split(':')[0])
            elif unit is not None:
                path = Path(os.path.normpath(self.build / line.strip()))
                if path != unit.source and path.is_relative_to(self.tree) and \
                        not path.is_relative_to(self.build):
                    unit.dependencies.append(path)

    def preamble(self, key):
        with self.preamble_lock:
            if key not in self.preambles:
                self.preambles[key] = self.make_preamble(key)
            return self.preambles[key]

    def make_preamble(self, key):
        compiler, defined, level = key
        lines = {line: None for unit in self.units.values()
                 if tuple(unit.compiler) == compiler and self.changes(unit.source)
                 for line in unit.includes()}
        text = '\n'.join([*defined, *lines, '#undef LOG_TAG', ''])
        mark = hashlib.sha256(f'{key}{text}'.encode()).hexdigest()[:16]
        header = self.out / 'preambles' / f'{mark}.h'
        header.parent.mkdir(exist_ok=True)
        if not Path(f'{header}.gch').exists():
            header.write_text(text)
            command = [*compiler, level, '-w', '-x', 'c++-header', str(header), '-o', f'{header}.gch']
            if subprocess.run(command, cwd=self.build, capture_output=True).returncode != 0:
                return []  # they don't go together: without, then
        return ['-include', str(header)]

    def units_of(self, path):
        """Of a header or a source: what has to be compiled anew when it changes."""
        path = self.tree / path
        return [u for u in self.units.values() if path == u.source or
                path.suffix == '.h' and u.source.suffix == '.cpp' and self.changes(u.source) and
                path in u.dependencies]

    def is_service(self, unit):
        return unit.source.relative_to(self.tree).parts[0] == 'hardware'

    def changes(self, path):
        return path.relative_to(self.tree).parts[0] in CHANGED_FOLDERS

    def know_programs(self):
        """Measures the programs, unless it was these that were measured last."""
        stored = self.out / 'programs.json'
        found = json.loads(stored.read_text()) if stored.exists() else {}
        if found.get('state') != self.state:
            self.say('measuring the test programs and what they execute')
            found = {'state': self.state, 'seconds': self.measure(), 'covered': self.cover()}
            stored.write_text(json.dumps(found))
        self.covered = found['covered']
        for program in list(self.programs.values()):
            program.seconds = found['seconds'].get(program.name)
            if program.seconds is None:
                self.say(f'{program.name} fails without any mutant and is left out')
                del self.programs[program.name]

    def measure(self):
        """How long each program takes; those that fail can tell nothing."""
        seconds = {}
        for program in self.programs.values():
            begin = time.monotonic()
            if self.passes(self.build / 'tests' / program.name, 120):
                seconds[program.name] = time.monotonic() - begin
        return seconds

    def passes(self, binary, timeout, environment=None):
        """Runs a test program up to its first failure."""
        variables = {**os.environ, 'GTEST_FAIL_FAST': '1', 'GTEST_BRIEF': '1',
                     **(environment or {})}
        cwd = self.build / 'tests' / 'unit'
        # A mutant may run for ever: not longer than the thread that runs it.
        process = subprocess.Popen(['setpriv', '--pdeathsig', 'KILL', str(binary)], cwd=cwd,
                                   env=variables, start_new_session=True,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        end = time.monotonic() + timeout
        while os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOWAIT | os.WNOHANG) is None:
            if time.monotonic() > end:
                break
            time.sleep(0.01)
        os.killpg(process.pid, signal.SIGKILL)  # and what it may have left behind
        return process.wait() == 0

    # Which programs execute which lines.

    def cover(self):
        """Source to line to the programs that execute it."""
        self.covered = {}
        folder = self.out / 'coverage'
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir()
        objects = self.coverage_objects(folder)
        for program in self.programs.values():
            self.cover_by(program, objects, folder)
        return self.covered

    def coverage_objects(self, folder):
        objects = {}
        for unit in self.units.values():
            if self.is_service(unit):
                output = folder / (unit.source.name + '.o')
                refusal = unit.compile(output, options=['--coverage'])
                if refusal:
                    raise BuildError(refusal)
                objects[unit.object] = str(output)
        dump = self.tree / 'tests' / 'support' / 'coverage' / 'CoverageDump.cpp'
        run(['g++', '-c', str(dump), '-o', str(folder / 'CoverageDump.o')])
        return objects

    def cover_by(self, program, objects, folder):
        binary = self.place_for(folder, program)
        run([*program.link_command(binary, objects, [str(folder / 'CoverageDump.o')]),
             '--coverage', '-Wl,--wrap=_exit', '-Wl,--wrap=kill'], cwd=self.build)
        counts = folder / (program.name + '.counts')
        counts.mkdir()
        for notes in folder.glob('*.gcno'):
            (counts / notes.name).symlink_to(notes)
        self.passes(binary, 120, {'GCOV_PREFIX': str(counts), 'GCOV_PREFIX_STRIP': '99'})
        data = sorted(p.name for p in counts.glob('*.gcda'))
        if data:
            run(['gcov', '--json-format', *data], cwd=counts)
        for report in counts.glob('*.gcov.json.gz'):
            for file in json.loads(gzip.decompress(report.read_bytes()))['files']:
                self.note(file, program)
        binary.unlink()

    def note(self, file, program):
        path = Path(os.path.normpath(self.build / file['file']))
        if not path.is_relative_to(self.tree / 'hardware'):
            return
        lines = self.covered.setdefault(str(path.relative_to(self.tree)), {})
        for line in file['lines']:
            programs = lines.setdefault(str(line['line_number']), [])
            if line['count'] > 0 and program.name not in programs:
                programs.append(program.name)

    def pinning(self, path, lines):
        """The programs that execute one of the lines; of lines without code, of the source. What a
        header has may run in the tests' own objects, too, in which nothing is counted."""
        covered = self.covered.get(str(path), {})
        with_code = [covered[str(line)] for line in lines if str(line) in covered]
        names = set().union(*(with_code or covered.values()))
        for unit in self.units_of(path) if path.suffix == '.h' else ():
            if not self.is_service(unit):
                names.update(p.name for p in self.programs.values() if unit.object in p.link)
            elif not with_code:
                source = str(unit.source.relative_to(self.tree))
                names.update(*self.covered.get(source, {}).values())
        return [self.programs[n] for n in names if n in self.programs]


class Worker:
    """Tries mutants, one at a time, in folders of its own."""

    def __init__(self, bench, number):
        self.bench = bench
        self.folder = bench.out / f'worker-{number}'
        bench.copy_changed(self.folder)

    def try_chosen(self, path, mutant):
        """What became of it and who found it (killed, survived, refused); None where it has to be
        compiled to know."""
        if mutant not in self.bench.placed(path):
            return None
        choice = self.bench.choice(path)
        if choice.refuses(path, mutant):
            return 'refused', ''
        number = choice.number(path, mutant)
        return self.kill_chosen(path, mutant, choice, number) if number else None

    def try_compiled(self, path, mutant, survived):
        """The same, or equivalent. survived: whether the programs have been run already."""
        target = self.folder / path
        original = target.read_text()
        target.write_text(mutant.apply(original))
        try:
            return self.verdict(path, mutant, survived)
        finally:
            target.write_text(original)

    def programs(self, path, mutant):
        """Those that pin it, the most promising first."""
        programs = self.bench.pinning(path, mutant.lines)
        return sorted(programs, key=lambda p: (p.seconds + p.spent[path]) / (1 + p.kills[path]))

    def kill_chosen(self, path, mutant, choice, number):
        for program in self.programs(path, mutant):
            binary = choice.binary(program)
            if binary is not None and not self.passes(program, path, binary, {
                    'KORVANE_MUTANT': str(number)}):
                return 'killed', program.name
        return 'survived', ''

    def passes(self, program, path, binary, environment=None):
        begin = time.monotonic()
        passed = self.bench.passes(binary, program.timeout, environment)
        program.spent[path] += time.monotonic() - begin
        program.kills[path] += not passed
        return passed

    def verdict(self, path, mutant, survived):
        units = [u for u in self.bench.units_of(path)]
        service = [u for u in units if self.bench.is_service(u)]
        replaced = {}
        for unit in service:
            output = self.folder / (unit.source.name + '.o')
            if unit.compile(output, self.folder):
                return 'refused', ''
            replaced[unit.object] = str(output)
        found = None if survived else \
            self.kill(path, mutant, [u for u in units if u not in service], replaced)
        if found:
            return found
        return ('equivalent', '') if self.folded(service) else ('survived', '')

    def kill(self, path, mutant, others, replaced):
        compiled = {}
        for program in self.programs(path, mutant):
            objects = dict(replaced)
            for unit in others:
                if unit.object not in program.link:
                    continue
                if unit.object not in compiled:
                    compiled[unit.object] = str(self.folder / (unit.source.name + '.o'))
                    if unit.compile(compiled[unit.object], self.folder):
                        return 'refused', ''
                objects[unit.object] = compiled[unit.object]
            binary = self.bench.place_for(self.folder, program)
            run(program.link_command(binary, objects), cwd=self.bench.build)
            passed = self.passes(program, path, binary)
            binary.unlink()
            if not passed:
                return 'killed', program.name
        return None

    def folded(self, units):
        """Whether the optimiser makes the same of the mutant as of the original."""
        return all(self.optimised(unit, self.folder) == self.original(unit) for unit in units)

    def original(self, unit):
        if unit.optimised is None:
            unit.optimised = self.optimised(unit, self.bench.out / 'original')
        return unit.optimised

    def optimised(self, unit, folder):
        output = self.folder / 'optimised.o'
        refusal = unit.compile(output, folder, '-O2', ['-Wno-error'])
        if refusal:
            raise BuildError(refusal)
        return output.read_bytes()
