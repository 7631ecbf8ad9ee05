"""The result of each mutant, the list of equivalent mutants, and the summary."""
import collections
import json

LEAST_SCORE = 95.0
COLUMNS = ("mutants", "not compiled", "refused", "killed", "timed out", "same code", "equivalent", "survived")


class Results:
    """A file to which each result is appended. Results for an older source do not count."""

    def __init__(self, path, hashes):
        self.path = path
        self.hashes = hashes  # file -> of its text
        self.records = {}
        if path.exists():
            for line in path.read_text(encoding="utf-8").splitlines():
                record = json.loads(line)
                self.records[record["key"]] = record

    def status(self, mutant):
        record = self.records.get(mutant.key)
        return record["status"] if record and record["source"] == self.hashes[mutant.file] else None

    def add(self, mutant, result):
        record = {"key": mutant.key, "line": mutant.line, "source": self.hashes[mutant.file], **result}
        self.records[mutant.key] = record
        with open(self.path, "a", encoding="utf-8") as file:
            file.write(json.dumps(record) + "\n")

    def kills(self, mutant):
        """How often each test noticed a mutant of the same function, and of the same file."""
        near, far = collections.Counter(), collections.Counter()
        for key, record in self.records.items():
            if record.get("by"):
                file, function = key.split(" | ")[:2]
                if file == mutant.file:
                    far[record["by"]] += 1
                    near[record["by"]] += function == mutant.function
        return near, far


class Equivalents:
    """The list: file | function | text | change | reason, one per line."""

    def __init__(self, path):
        self.path = path
        self.reasons = {}
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            if not line.strip() or line.startswith("#"):
                continue
            name, _, reason = line.strip().rpartition(" | ")
            if name.count(" | ") < 3 or not reason:
                raise SystemExit("%s:%d: expected file | function | text | change | reason" % (path, number))
            self.reasons[name] = reason


class Summary:
    """The results of all mutants."""

    def __init__(self, mutants, known, results, equivalents):
        self.by_file = collections.defaultdict(collections.Counter)
        self.by_kind = collections.defaultdict(collections.Counter)
        self.total = collections.Counter()
        self.survivors = []
        self.open = 0
        matched = set()
        for mutant in mutants:
            status = results.status(mutant)
            if status is None:
                self.open += 1
                continue
            if status == "survived" and mutant.name in equivalents.reasons:
                status = "equivalent"
                matched.add(mutant.name)
            if status == "survived":
                self.survivors.append(mutant)
            for counter in (self.by_file[mutant.file], self.by_kind[mutant.kind], self.total):
                counter["mutants"] += 1
                counter[status] += 1
        tried = {mutant.name for mutant in mutants if results.status(mutant) is not None}
        self.stale = [name for name in equivalents.reasons
                      if name not in known or (name in tried and name not in matched)]

    def score(self):
        counted = self.total["mutants"] - self.total["not compiled"] - self.total["refused"]
        return 100.0 * (self.total["killed"] + self.total["timed out"]) / counted if counted else 0.0

    def passed(self):
        return self.score() >= LEAST_SCORE and not self.survivors and not self.stale

    def print(self):
        for title, table in (("file", self.by_file), ("kind", self.by_kind)):
            print("%-55s" % title + "".join("%13s" % column for column in COLUMNS))
            for name, counter in sorted(table.items()):
                print("%-55s" % name + "".join("%13d" % counter[column] for column in COLUMNS))
        print("%-55s" % "all" + "".join("%13d" % self.total[column] for column in COLUMNS))
        print("%.2f %% of the mutants that compile are noticed, required are %.0f %%" % (self.score(), LEAST_SCORE))
        if self.open:
            print("not run yet: %d" % self.open)
        for mutant in self.survivors:
            print("SURVIVED, NOT LISTED: %s (line %d)" % (mutant.name, mutant.line))
        for name in self.stale:
            print("LISTED BUT DOES NOT SURVIVE: %s" % name)
