"""A sink for a tool's events that keeps them in order, for the tool tests."""


class ToolRecorder:
    def __init__(self):
        self.events = []

    def PreRun(self):
        self.events.append("PreRun")

    def PostRun(self):
        self.events.append("PostRun")

    def Change(self, StateID, Value, FunctionalArea):
        self.events.append(("Change", StateID, FunctionalArea))

    def Terminating(self):
        self.events.append("Terminating")
