"""All executions of a small program that the C++ memory model allows.

The model is RC11 (Lahav, Vafeiadis, Kang, Hur and Dreyer, "Repairing sequential consistency in C/C++11"): coherence,
atomicity, the repaired order of sequentially consistent operations, and no cycle of program order and reads-from. The
search tries every combination of values read, of the writes that they come from, and of modification orders.
"""
import collections
import dataclasses
import itertools

INITIAL = -1  # the thread of the initial writes


@dataclasses.dataclass(frozen=True)
class Step:
    """One instruction. It runs if it has no guard, or if the guard's register has one of the guard's values. A load
    that does not run leaves its register without a value."""
    kind: str  # R, W, U (exchange) or F (fence)
    order: str  # na, rlx, acq_rel or sc; acquire for reads, release for writes
    place: str = ""
    value: int = 0
    register: str = ""
    guard: tuple = ()


def load(register, place, order, guard=()):
    return Step("R", order, place, register=register, guard=guard)


def store(place, value, order, guard=()):
    return Step("W", order, place, value, guard=guard)


def exchange(place, value, order, register=""):
    return Step("U", order, place, value, register)


def fence(order):
    return Step("F", order)


@dataclasses.dataclass(frozen=True)
class Event:
    thread: int
    step: Step
    read: int = None

    def reads(self):
        return self.step.kind in "RU"

    def writes(self):
        return self.step.kind in "WU"

    def atomic(self):
        return self.step.order != "na"

    def synchronises(self):
        return self.step.order in ("acq_rel", "sc")

    def is_sc(self):
        return self.step.order == "sc"

    def is_fence(self):
        return self.step.kind == "F"


Execution = collections.namedtuple("Execution", "events registers final source order races")


def compose(*relations):
    result = relations[0]
    for relation in relations[1:]:
        followers = collections.defaultdict(set)
        for left, right in relation:
            followers[left].add(right)
        result = {(left, right) for left, middle in result for right in followers[middle]}
    return result


def close(relation):
    """The transitive closure."""
    closed = set(relation)
    while True:
        more = compose(closed, relation) - closed
        if not more:
            return closed
        closed |= more


def has_cycle(relation):
    return any(left == right for left, right in close(relation))


class Graph:
    """One candidate: events, where each read comes from, and the order of the writes to each place."""

    def __init__(self, events, source, order):
        self.events, self.source, self.order = events, source, order
        numbers = range(len(events))
        self.same = {(n, n) for n in numbers}
        self.sb = {(a, b) for a in numbers for b in numbers if a < b and (
            events[a].thread == events[b].thread != INITIAL or events[a].thread == INITIAL != events[b].thread)}
        self.rf = {(write, read) for read, write in source.items()}
        self.mo = {pair for writes in order.values() for pair in itertools.combinations(writes, 2)}
        self.rb = compose({(read, write) for write, read in self.rf}, self.mo) - self.same
        self.hb = close(self.sb | self.find_synchronisation())

    def only(self, predicate):
        return {(n, n) for n, event in enumerate(self.events) if predicate(event)}

    def same_place(self, pair):
        left, right = (self.events[n].step.place for n in pair)
        return left == right != ""

    def find_synchronisation(self):
        """From each release to the acquires that read from its release sequence."""
        to_fence = self.same | compose(self.sb, self.only(Event.is_fence))
        from_fence = self.same | compose(self.only(Event.is_fence), self.sb)
        exchanges = self.only(lambda event: event.step.kind == "U")
        local = self.same | {pair for pair in self.sb if self.same_place(pair)}
        sequence = compose(self.only(Event.writes), local, self.only(lambda event: event.writes() and event.atomic()),
                           self.same | close(compose(self.rf, exchanges)))
        releases = self.only(lambda event: event.synchronises() and (event.writes() or event.is_fence()))
        acquires = self.only(lambda event: event.synchronises() and (event.reads() or event.is_fence()))
        atomic_reads = self.only(lambda event: event.reads() and event.atomic())
        return compose(releases, from_fence, sequence, self.rf, atomic_reads, to_fence, acquires)

    def is_consistent(self):
        eco = close(self.rf | self.mo | self.rb)
        return not (any(left == right for left, right in self.hb | compose(self.hb, eco))
                    or eco & self.same
                    or compose(self.rb, self.mo) & self.same
                    or has_cycle(self.sb | self.rf)
                    or has_cycle(self.order_sc(eco)))

    def order_sc(self, eco):
        elsewhere = {pair for pair in self.sb if not self.same_place(pair)}
        local_hb = {pair for pair in self.hb if self.same_place(pair)}
        scb = self.sb | compose(elsewhere, self.hb, elsewhere) | local_hb | self.mo | self.rb
        accesses = self.only(lambda event: event.is_sc() and not event.is_fence())
        fences = self.only(lambda event: event.is_sc() and event.is_fence())
        hb = self.same | self.hb
        base = compose(accesses | compose(fences, hb), scb, accesses | compose(hb, fences))
        return base | compose(fences, self.hb | compose(self.hb, eco, self.hb), fences)

    def find_races(self):
        events = self.events
        return [(a, b) for a, b in itertools.combinations(range(len(events)), 2)
                if events[a].thread != events[b].thread and self.same_place((a, b))
                and (events[a].writes() or events[b].writes())
                and not (events[a].atomic() and events[b].atomic())
                and (a, b) not in self.hb and (b, a) not in self.hb]


def trace(number, steps, values, registers=None):
    """Each path through a thread, as (events, registers). A read may yield any value that is written to its place."""
    registers = registers or {}
    if not steps:
        yield (), registers
        return
    step, rest = steps[0], steps[1:]
    if step.guard and registers.get(step.guard[0]) not in step.guard[1]:
        yield from trace(number, rest, values, registers)
        return
    for value in sorted(values[step.place]) if step.kind in "RU" else [None]:
        known = {**registers, step.register: value} if step.register else registers
        for events, final in trace(number, rest, values, known):
            yield (Event(number, step, value), *events), final


def find_executions(threads, initial=None):
    """Yields every execution of the threads, each a list of steps, that the memory model allows."""
    steps = [step for thread in threads for step in thread]
    places = sorted({step.place for step in steps if step.place})
    values = {place: {(initial or {}).get(place, 0)} for place in places}
    first = [Event(INITIAL, Step("W", "na", place, *values[place])) for place in places]
    for step in steps:
        if step.kind in "WU":
            values[step.place].add(step.value)
    for paths in itertools.product(*(list(trace(*item, values)) for item in enumerate(threads))):
        events = first + [event for path, _ in paths for event in path]
        registers = {name: value for _, known in paths for name, value in known.items()}
        yield from find_graphs(events, places, registers)


def find_graphs(events, places, registers):
    writes = {place: [n for n, event in enumerate(events) if event.writes() and event.step.place == place]
              for place in places}
    reads = [n for n, event in enumerate(events) if event.reads()]
    sources = [[write for write in writes[events[read].step.place]
                if write != read and events[write].step.value == events[read].read] for read in reads]
    orders = [[(place_writes[0], *rest) for rest in itertools.permutations(place_writes[1:])]
              for place_writes in writes.values()]
    for chosen in itertools.product(*sources):
        for order in itertools.product(*orders):
            graph = Graph(events, dict(zip(reads, chosen)), dict(zip(places, order)))
            if graph.is_consistent():
                final = {place: events[graph.order[place][-1]].step.value for place in places}
                yield Execution(events, registers, final, graph.source, graph.order, graph.find_races())
