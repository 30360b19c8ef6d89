"""A thread that does one thing again and again beside the screen."""

import threading


class Worker(threading.Thread):
    def __init__(self, pause):
        super().__init__(daemon=True)
        self._pause = pause  # seconds between two steps
        self._ending = threading.Event()
        self.failure = None

    def step(self, number):
        raise NotImplementedError

    def run(self):
        number = 0
        try:
            while not self._ending.is_set():
                self.step(number)
                number += 1
                self._ending.wait(self._pause)
        except Exception as failure:  # shown by the main thread, which has the screen
            self.failure = failure

    def stop(self):
        self._ending.set()
        if self.is_alive():
            self.join(timeout=10)
