"""Tries mutants, and finds the test that notices each, if any."""
import multiprocessing
import traceback

import processes
from build import Workplace
from suite import LAST_RESORT, Runner, by_program

# Limits in seconds: shorter tests run before longer ones.
TIERS = (0.15, 1.5)
MOST_FAVOURITES = 12
SPECIFICITY_STEPS = 10
# How many groups of tests are compiled again if only tests can show the change of a header.
MOST_COMPILED = 6


class Trial:
    """One mutant in one workplace."""

    def __init__(self, runner, suite, budget):
        self.runner = runner
        self.suite = suite
        self.budget = budget
        self.workplace = runner.workplace
        self.specificities = {}  # file -> test -> share

    def run(self, mutant, near, far):
        status = self.workplace.take(mutant)
        if status != "compiled":
            return {"status": status}
        plan = self.plan(mutant, near, far)
        result = self.run_plan(plan)
        if result["status"] == "survived" and self.workplace.is_same_code(mutant):
            if not mutant.file.endswith(".h"):
                return {"status": "same code"}
            # No source of the product uses the place, so only tests that use it can notice.
            self.workplace.take_includers({mutant.file})
            return self.run_plan(plan[:MOST_COMPILED])
        return result

    def run_plan(self, plan):
        for tests in plan:
            if not self.workplace.link(tests[0].program):
                return {"status": "not compiled"}
            outcome = self.confirm(tests, self.runner.run(tests))
            if outcome.how != "passed":
                status = "timed out" if outcome.how == "hung" else "killed"
                return {"status": status, "by": outcome.test, "how": outcome.how}
        return {"status": "survived"}

    def plan(self, mutant, near, far):
        """Groups of tests that execute the mutant: first those that noticed its neighbours, then the quick ones."""
        covering = [test for test in self.suite.usable() if test.name in self.suite.covering(mutant)]
        times = self.suite.times
        favourites = [test for test in covering if near[test.name] and times.get(test.name, 0) < TIERS[-1]]
        favourites.sort(key=lambda test: -near[test.name])
        tiers = [favourites[:MOST_FAVOURITES]]
        chosen = {test.name for test in tiers[0]}
        bounds = (0.0, *TIERS, float("inf"))
        for low, high in zip(bounds, bounds[1:]):
            tiers.append([test for test in covering if test.name not in chosen
                          and low <= times.get(test.name, 0.0) < high and test.label != LAST_RESORT])
        tiers.append([test for test in self.suite.usable() if test.label == LAST_RESORT])
        plan = []
        for tier in tiers:
            plan += sorted(by_program(tier), key=lambda group: self.rank(mutant, group, far))
        return self.within_budget(plan)

    def rank(self, mutant, group, far):
        """Sorts tests that noticed mutants of the same file first, then those that mostly execute this file."""
        if mutant.file not in self.specificities:
            self.specificities[mutant.file] = self.suite.specificity(mutant.file)
        shares = self.specificities[mutant.file]
        share = max(shares.get(test.name, 0.0) for test in group)
        return (-max(far[test.name] for test in group), -round(share * SPECIFICITY_STEPS),
                sum(self.suite.times.get(test.name, 0.0) for test in group))

    def within_budget(self, plan):
        left, chosen = self.budget, []
        for group in plan:
            fitting = []
            for test in group:
                seconds = self.suite.times.get(test.name, 0.0)
                if seconds <= left:
                    left -= seconds
                    fitting.append(test)
            if fitting:
                chosen.append(fitting)
        return chosen

    def confirm(self, tests, outcome):
        """Repeats a failure or hang: a busy machine alone must not count."""
        if outcome.how in ("passed", "died"):
            return outcome
        position = [test.name for test in tests].index(outcome.test)
        until = tests[:position + 1]
        if outcome.how == "hung":
            again = self.runner.run(tests[position:position + 1], 2.0)
            return again if again.how != "passed" else self.runner.run(until, 2.0)
        for _ in range(2):
            again = self.runner.run(until)
            if again.how != "passed":
                return outcome
        return self.continue_after(tests, position)

    def continue_after(self, tests, position):
        rest = tests[position + 1:]
        return self.confirm(rest, self.runner.run(rest)) if rest else self.runner.run(tests[:1])


def serve(connection, build, suite, number, budget):
    """The body of a worker: takes mutants from the connection and answers with results."""
    processes.exit_when_told()
    processes.adopt_orphans()
    runner = Runner(Workplace(build, number), suite)
    trial = Trial(runner, suite, budget)
    while (order := connection.recv()) is not None:
        try:
            connection.send(trial.run(*order))
        except Exception:  # the other mutants continue
            connection.send({"status": None, "error": traceback.format_exc()})


class Worker:
    """A process that tries mutants."""

    def __init__(self, build, suite, number, budget):
        self.connection, other = multiprocessing.Pipe()
        self.process = multiprocessing.Process(target=serve, args=(other, build, suite, number, budget), daemon=True)
        self.process.start()

    def run(self, *order):
        self.connection.send(order)
        return self.connection.recv()

    def end(self):
        self.connection.send(None)
        self.process.join()
