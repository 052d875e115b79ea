"""What the runs found, kept in the build folder from run to run: one verdict for each mutant of the sources as they are."""
import hashlib
import json


class Results:
    def __init__(self, path):
        self.path = path
        self.kept = json.loads(path.read_text()) if path.exists() else {}

    @staticmethod
    def state(mutant):
        return hashlib.sha256(mutant.source.text).hexdigest()[:16]

    def add(self, mutant, name, verdict):
        self.kept[name] = [verdict.outcome, verdict.by, self.state(mutant)]

    def of(self, mutant, name):
        """The outcome and the test, or none if the mutant has not been made since its source changed."""
        outcome, by, state = self.kept.get(name, (None, None, None))
        return (outcome, by) if state == self.state(mutant) else None

    def write(self):
        self.path.parent.mkdir(parents=True, exist_ok=True)
        temporary = self.path.with_suffix(".new")
        temporary.write_text(json.dumps(self.kept, indent=0))
        temporary.replace(self.path)
