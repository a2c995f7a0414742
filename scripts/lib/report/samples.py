"""What scripts/bench has measured: values by figure, case, variant and metric, in order of the runs.

The n-th values of two variants were measured right after one another, so a ratio is taken over
pairs of runs.
"""

import statistics
from collections import namedtuple

Series = namedtuple("Series", "figure case variant metric")
Stat = namedtuple("Stat", "median min max runs")


def stat_of(values):
    """None when nothing was measured."""
    if not values:
        return None
    return Stat(statistics.median(values), min(values), max(values), len(values))


class Samples:
    def __init__(self, lines):
        """A line has the four names of a series and a value, with tabs between them."""
        self._values = {}
        for line in lines:
            fields = line.rstrip("\n").split("\t")
            if len(fields) == 5:
                self._values.setdefault(Series(*fields[:4]), []).append(float(fields[4]))

    def stat(self, *series):
        return stat_of(self._values.get(Series(*series)))

    def ratio(self, over, under):
        pairs = zip(self._values.get(over, []), self._values.get(under, []))
        return stat_of([a / b for a, b in pairs if b > 0])

    def cases(self, figure):
        return list(dict.fromkeys(key.case for key in self._values if key.figure == figure))

    def variants(self, figure):
        return list(dict.fromkeys(key.variant for key in self._values if key.figure == figure))
