#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""rights.py TABLE POLICY...: asks built policies for the rights that a table (policy/rights) lists.

The questions are those of sesearch and seinfo, asked through the library beneath them, so that many
policies cost one start of it. Prints a line "POLICY: what is missing" for each right that one lacks, and
for each ioctl that it allows beyond the listed. Exit status 1 when there is one, 2 for a bad table.

Debian's python3 has that library, whatever else is called python3 here.
"""
import sys

import setools


def read_table(path):
    """The rows as lists of words."""
    text = open(path, encoding='ascii').read().replace('\\\n', ' ')
    rows = [line.split('#')[0].split() for line in text.split('\n')]
    rows = [row for row in rows if row]
    for row in rows:
        if len(row) < 6 or row[1] not in QUESTIONS:
            sys.exit(f'rights.py: no row of a table: {" ".join(row)}')
    return rows


def rules(policy, kind, source, target, tclass):
    """The rules of that kind which apply to the types, by their own names or by attributes."""
    return setools.TERuleQuery(policy, ruletype=[kind], source=source, target=target,
                               tclass=[tclass]).results()


def allowed(policy, *who):
    return {right for rule in rules(policy, setools.TERuletype.allow, *who) for right in rule.perms}


def ioctls(policy, *who):
    found = set()
    for rule in rules(policy, setools.TERuletype.allowxperm, *who):
        found.update(f'{number:#x}' for number in rule.perms)
    return found


def entered(policy, *who):
    return {str(rule.default) for rule in rules(policy, setools.TERuletype.type_transition, *who)}


def attributes(policy, source, _target, _class):
    return {str(attribute) for attribute in policy.lookup_type(source).attributes()}


QUESTIONS = {'allow': allowed, 'ioctl': ioctls, 'enters': entered, 'is': attributes}


def missing(policy, rows):
    """What the policy lacks, a text each."""
    for road, kind, source, target, tclass, *needed in rows:
        answer = QUESTIONS[kind](policy, source, target, tclass)
        for right in needed:
            if right not in answer:
                yield f'{road}: {source} has not: {kind} {target} {tclass} {right}'
        if kind == 'ioctl':
            for right in sorted(answer - set(needed)):
                yield f'{road}: {source} has what no road needs: {kind} {target} {tclass} {right}'


def main():
    rows = read_table(sys.argv[1])
    complete = True
    for path in sys.argv[2:]:
        for what in missing(setools.SELinuxPolicy(path), rows):
            print(f'{path}: {what}')
            complete = False
    sys.exit(0 if complete else 1)


if __name__ == '__main__':
    main()
