"""The gdb command "zel": shows what the task pool does, in a live process or in a core file.

It reads memory and calls nothing, so it is safe at any moment. The debug symbols of the library tell where the members
of the pool's classes are. The containers of the standard library are read as libstdc++ lays them out.
"""
import time

import gdb

WORD = 8
TEXT_SIZE = 32  # of a std::string
NODE_SIZE = 32  # of what precedes the entry in a node of a std::map
DEEPEST = 128  # more levels than a std::map can have
LONGEST_TEXT = 200
LARGEST_READ = 1 << 20  # larger than what any of the pool's objects has in one piece
LONGEST_LIST = 1 << 24  # entries; more means that it is being changed
SHOWN = 20  # entries of a list, unless the command says how many

STRING_TYPE = 3  # CVariantType_String
STATES = {0: "waits for its time", 1: "is queued", 3: "runs"}  # n_TaskStatus


class Unreadable(Exception):
    """Reports what cannot be read. The text is for the user."""


def read(address, size):
    """Returns an unsigned number."""
    return int.from_bytes(read_bytes(address, size), "little")


def read_bytes(address, size):
    if size > LARGEST_READ:
        raise Unreadable("a text is being changed")
    try:
        return bytes(gdb.selected_inferior().read_memory(address, size))
    except (gdb.error, OverflowError) as error:
        raise Unreadable(str(error)) from None


def read_word(address):
    return read(address, WORD)


def read_int(address):
    """Returns a std::int32_t."""
    return int.from_bytes(read_bytes(address, 4), "little", signed=True)


def read_text(address):
    """Returns a std::string, with dots if it was cut."""
    size = read_word(address + WORD)
    text = read_bytes(read_word(address), min(size, LONGEST_TEXT)).decode(errors="replace")
    text = "".join(char if char.isprintable() else "?" for char in text)
    return text + ("..." if size > LONGEST_TEXT else "")


def read_texts(address):
    """Returns the addresses of the elements of a std::vector<std::string>."""
    first, end = read_word(address), read_word(address + WORD)
    if not 0 <= end - first <= LONGEST_LIST * TEXT_SIZE or (end - first) % TEXT_SIZE:
        raise Unreadable("a list is being changed")
    return range(first, end, TEXT_SIZE)


def map_size(address):
    return read_word(address + 5 * WORD)


def walk_map(address):
    """Yields the addresses of the entries of a std::map, in order."""
    left = map_size(address)
    node = read_word(address + 2 * WORD)
    above = []
    while left and (node or above):
        while node:
            above.append(node)
            if len(above) > DEEPEST:
                raise Unreadable("a map is being changed")
            node = read_word(node + 2 * WORD)
        node = above.pop()
        yield node + NODE_SIZE
        left -= 1
        node = read_word(node + 3 * WORD)


def find_text(address, key):
    """Returns the address of the entry with this std::string as its key in a std::map; None if there is none."""
    node = read_word(address + 2 * WORD)
    for _ in range(DEEPEST):
        if not node:
            return None
        entry = node + NODE_SIZE
        found = read_bytes(read_word(entry), read_word(entry + WORD))
        if found == key:
            return entry
        node = read_word(node + (2 if key < found else 3) * WORD)
    raise Unreadable("a map is being changed")


def find_member(type_name, wanted):
    """Returns the offset of the first member for which wanted(field) holds, also in base classes."""
    def search(kind):
        for field in kind.fields():
            if not hasattr(field, "bitpos"):
                continue  # static
            if wanted(field):
                return field.bitpos // 8
            if field.is_base_class:
                found = search(field.type.strip_typedefs())
                if found is not None:
                    return found + field.bitpos // 8
        return None

    try:
        return search(gdb.lookup_type(type_name).strip_typedefs())
    except gdb.error:
        return None


def member(type_name, name):
    offset = find_member(type_name, lambda field: field.name == name)
    if offset is None:
        raise Unreadable("the debug symbols of libZelTaskPool do not know %s::%s" % (type_name, name))
    return offset


def member_of_kind(type_name, code):
    offset = find_member(type_name, lambda field: field.type.strip_typedefs().code == code)
    if offset is None:
        raise Unreadable("the debug symbols of libZelTaskPool do not know what %s holds" % type_name)
    return offset


def find_static(name):
    """Returns the address of a static member, or of what it refers to."""
    try:
        value = gdb.parse_and_eval(name)
        if value.type.strip_typedefs().code == gdb.TYPE_CODE_REF:
            value = value.referenced_value()
        return int(value.address)
    except gdb.error:
        raise Unreadable(explain_missing_symbols()) from None


def explain_missing_symbols():
    if not gdb.selected_inferior().pid:
        return "there is no process and no core file"
    if not any("libZelTaskPool" in (file.filename or "") for file in gdb.objfiles()):
        return "libZelTaskPool is not loaded in this program"
    return ("there are no debug symbols of libZelTaskPool. Install libzeltaskpool1-dbgsym of the library's version, "
            "or unpack it and \"set debug-file-directory\" to its usr/lib/debug")


def count(number, noun):
    return "%d %s%s" % (number, noun, "" if number == 1 else "s")


class Clock:
    """Tells how long ago something was. A core file does not tell when it was written, so its clock shows the latest
    time at which a worker ended a task."""

    def __init__(self, moments):
        connection = getattr(gdb.selected_inferior(), "connection", None)
        self.live = connection is not None and connection.type == "native"
        self.now = time.monotonic_ns() if self.live else max(moments, default=0)

    def since(self, moment):
        return "%s%.3f s" % ("" if self.live else "at least ", max(self.now - moment, 0) / 1e9)


class Task:
    """Holds what the command shows of a task record."""

    def __init__(self, address):
        self.status = read_int(address + member("CLS_Task", "m_iTaskStatus"))
        self.interval = read_int(address + member("CLS_Task", "m_iLoopInterval"))
        self.call_info = self.read_call_info(address + member("CLS_Task", "m_mapParam"))

    @staticmethod
    def read_call_info(parameters):
        entry = find_text(parameters, b"callinfo")
        if entry is None:
            return ""
        variant = entry + TEXT_SIZE
        if read_int(variant + member_of_kind("CLS_CVariant", gdb.TYPE_CODE_ENUM)) != STRING_TYPE:
            return ""
        text = read_word(variant + member_of_kind("CLS_CVariant", gdb.TYPE_CODE_UNION))
        return read_text(text) if text else ""


class Worker:
    def __init__(self, entry):
        self.address = read_word(entry)
        self.task_id = entry + WORD
        self.order = read_int(self.address + member("CLS_TaskThread", "m_iOrderId"))
        self.last_active = read_word(self.address + member("CLS_TaskThread", "m_tpLastActive"))

    def is_bound(self):
        return read_word(self.task_id + WORD) != 0

    def thread(self):
        """Returns gdb's number of the thread, as the end of a line."""
        handle = read_word(self.address + member("CLS_TaskThread", "m_pThread"))
        handle = read_word(handle) if handle else 0
        for thread in gdb.selected_inferior().threads():
            try:
                if int.from_bytes(thread.handle(), "little") == handle:
                    return " (thread %d)" % thread.num
            except gdb.error:
                pass  # gdb does not know the thread's handle
        return ""


class Pool:
    def __init__(self, shown):
        self.shown = shown
        self.registry = find_static("CLS_Task::m_mapTaskData")
        self.address = read_word(find_static("CLS_QuenTaskPool::m_pInstance"))
        if not self.address:
            raise Unreadable("there is no pool")

    def member(self, name):
        return self.address + member("CLS_QuenTaskPool", name)

    def find_task(self, task_id):
        """Returns the task with this id; None if it is not in the registry."""
        key = read_bytes(read_word(task_id), read_word(task_id + WORD))
        entry = find_text(self.registry, key)
        return Task(read_word(entry + TEXT_SIZE)) if entry else None

    def describe_task(self, task_id):
        task = self.find_task(task_id)
        return "\"%s\" (%s)" % (task.call_info if task else "a removed task", read_text(task_id))

    def describe_worker(self, worker, idle, clock):
        if not worker.is_bound():
            if worker.address in idle:
                return "idle for " + clock.since(worker.last_active)
            return "between two tasks"
        task = self.find_task(worker.task_id)
        doing = "runs" if task and task.status != 1 else "is about to run"
        since = ", for at most " + clock.since(worker.last_active) if clock.live else ""
        return "%s %s%s" % (doing, self.describe_task(worker.task_id), since)

    def show_workers(self):
        workers = [Worker(entry) for entry in walk_map(self.member("m_mapThreadTask"))]
        workers.sort(key=lambda worker: worker.order)
        clock = Clock([worker.last_active for worker in workers])
        ending = "" if read(self.member("m_bRun"), 1) else "; the pool is shutting down"
        most = read_int(self.member("m_iMaxThread")) + 1
        print("workers: %d of %d at most%s" % (len(workers), most, ending))
        idle = self.member("m_vecIdleThreads")
        idle = set(read_word(slot) for slot in range(read_word(idle), read_word(idle + WORD), WORD)[:most])
        for worker in workers:
            print("  %d: %s%s" % (worker.order, self.describe_worker(worker, idle, clock), worker.thread()))

    def show_list(self, entries, describe):
        for entry in entries[:self.shown]:
            print("  " + describe(entry))
        if len(entries) > self.shown:
            print("  and %d more" % (len(entries) - self.shown))

    def show_queue(self):
        queue = read_texts(self.member("m_vecWaitingTasks"))
        print("queue: " + count(len(queue), "task"))
        self.show_list(queue, self.describe_task)

    def describe_loop(self, task_id):
        task = self.find_task(task_id)
        state = ""
        if task:
            state = ": every %d ms, %s" % (task.interval, STATES.get(task.status, "status %d" % task.status))
        return self.describe_task(task_id) + state

    def show_loops(self):
        loops = read_texts(self.member("m_vecLoopTasks"))
        print("loop tasks: %d" % len(loops))
        self.show_list(loops, self.describe_loop)

    def show_owners(self):
        owners = [(read_word(entry), read_word(entry + 3 * WORD))
                  for entry in walk_map(self.member("m_mapTmpTasks"))]
        owners.sort(key=lambda owner: -owner[1])
        print("owners: %d with %s" % (len(owners), count(sum(owner[1] for owner in owners), "task")))
        self.show_list(owners, lambda owner: "%#x: %s" % (owner[0], count(owner[1], "task")))

    def show_registry(self):
        print("registry: " + count(map_size(self.registry), "task"))


class ZelCommand(gdb.Command):
    """Print what the task pool does: its workers, queue, loop tasks, owners and the size of its registry.

Usage: zel [MOST]

Of each list but that of the workers, MOST entries are shown, 20 if not given. Works in a live process and in a core
file, and needs the debug symbols of libZelTaskPool. A task has run at most since its worker's last task ended. A core
file does not tell when it was written, so times there are lower limits. "(thread N)" is the number for gdb's
command "thread"."""

    def __init__(self):
        super().__init__("zel", gdb.COMMAND_STATUS)

    def invoke(self, argument, from_tty):
        try:
            shown = int(argument) if argument else SHOWN
        except ValueError:
            raise gdb.GdbError("zel: MOST must be a number, not \"%s\"" % argument) from None
        language = gdb.parameter("language")
        gdb.execute("set language c++", to_string=True)  # the host's may know none of the names
        try:
            self.show(max(shown, 0))
        finally:
            gdb.execute("set language " + language, to_string=True)

    @staticmethod
    def show(shown):
        try:
            pool = Pool(shown)
        except Unreadable as reason:
            raise gdb.GdbError("zel: %s" % reason) from None
        for show in (pool.show_workers, pool.show_queue, pool.show_loops, pool.show_owners, pool.show_registry):
            try:
                show()
            except Unreadable as reason:
                print("  cannot be read: %s" % reason)


ZelCommand()
