"""When files of some folders are written: the system's own notices (inotify), with the time at which they came."""
import ctypes
import os
import select
import struct
import threading
import time

IN_MODIFY, IN_CLOSE_WRITE = 0x2, 0x8
HEADER = struct.Struct("iIII")


class FolderWatch:
    """Notes writes until it is closed, on a thread of its own that may run on every core. As a context manager."""

    def __init__(self, folders):
        self._libc = ctypes.CDLL(None, use_errno=True)
        self._notices = self._libc.inotify_init1(os.O_CLOEXEC)
        self._folders = {}
        for folder in folders:
            watch = self._libc.inotify_add_watch(self._notices, os.fsencode(folder), IN_MODIFY | IN_CLOSE_WRITE)
            if watch < 0:
                raise OSError(ctypes.get_errno(), f"{folder} cannot be watched")
            self._folders[watch] = folder
        self.events = []  # (seconds, folder, file name, IN_MODIFY or IN_CLOSE_WRITE)
        self._stop_read, self._stop_write = os.pipe()
        self._thread = threading.Thread(target=self._collect)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *failure):
        os.write(self._stop_write, b".")
        self._thread.join()
        for handle in (self._notices, self._stop_read, self._stop_write):
            os.close(handle)

    def _collect(self):
        os.sched_setaffinity(0, range(os.cpu_count()))
        poll = select.poll()
        poll.register(self._notices, 1)
        poll.register(self._stop_read, 1)
        while not any(handle == self._stop_read for handle, _ in poll.poll()):
            now = time.monotonic()
            notices = os.read(self._notices, 65536)
            while notices:
                watch, mask, _, length = HEADER.unpack_from(notices)
                name = notices[HEADER.size:HEADER.size + length].rstrip(b"\0").decode()
                self.events.append((now, self._folders[watch], name, mask))
                notices = notices[HEADER.size + length:]


def first_writes(events, stamps, documents):
    """The seconds from the latest stamp to the first write of each new document."""
    stamped, seen, seconds = None, set(), []
    for when, folder, name, mask in events:
        if folder == stamps and mask & IN_CLOSE_WRITE:
            stamped = when
        elif folder == documents and mask & IN_MODIFY and name not in seen:
            seen.add(name)
            if stamped is not None:
                seconds.append(when - stamped)
    return seconds
