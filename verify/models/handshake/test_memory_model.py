#!/usr/bin/env python3
"""Textbook programs, and whether the C++ memory model allows their weak outcomes."""
import unittest

from memory_model import exchange, fence, find_executions, load, store


def sees(threads, **wanted):
    """Whether an execution ends with these values in its registers and places."""
    return any(all({**execution.final, **execution.registers}[name] == value for name, value in wanted.items())
               for execution in find_executions(threads))


def races(threads):
    return any(execution.races for execution in find_executions(threads))


def store_buffering(order):
    return [[store("x", 1, order), load("a", "y", order)], [store("y", 1, order), load("b", "x", order)]]


def message_passing(order):
    return [[store("x", 1, order), store("y", 1, order)], [load("a", "y", order), load("b", "x", order)]]


def load_buffering(order):
    return [[load("a", "x", order), store("y", 1, order)], [load("b", "y", order), store("x", 1, order)]]


def independent_reads(order):
    return [[store("x", 1, order)], [store("y", 1, order)],
            [load("a", "x", order), load("b", "y", order)], [load("c", "y", order), load("d", "x", order)]]


def read_twice(order):
    return [[store("x", 1, order), store("x", 2, order)], [load("a", "x", order), load("b", "x", order)]]


def write_twice(order):
    return [[store("x", 1, order), store("y", 2, order)], [store("y", 1, order), store("x", 2, order)]]


def write_to_read(order):
    return [[store("x", 1, order)], [load("a", "x", order), store("y", 1, order)],
            [load("b", "y", order), load("c", "x", order)]]


class LitmusTest(unittest.TestCase):
    def check(self, program, allowed, **wanted):
        for order in ("rlx", "acq_rel", "sc"):
            with self.subTest(order=order):
                self.assertEqual(sees(program(order), **wanted), order in allowed)

    def test_store_buffering_is_refused_by_seq_cst_alone(self):
        self.check(store_buffering, ("rlx", "acq_rel"), a=0, b=0)

    def test_message_passing_is_safe_from_acquire_and_release_on(self):
        self.check(message_passing, ("rlx",), a=1, b=0)

    def test_load_buffering_is_never_seen(self):
        self.check(load_buffering, (), a=1, b=1)

    def test_independent_reads_agree_with_seq_cst_alone(self):
        self.check(independent_reads, ("rlx", "acq_rel"), a=1, b=0, c=1, d=0)

    def test_reads_of_one_place_never_go_back(self):
        self.check(read_twice, (), a=2, b=1)

    def test_crossed_writes_are_refused_by_seq_cst_alone(self):
        self.check(write_twice, ("rlx", "acq_rel"), x=1, y=1)

    def test_causality_holds_from_acquire_and_release_on(self):
        self.check(write_to_read, ("rlx",), a=1, b=1, c=0)

    def test_every_plain_interleaving_is_seen(self):
        for a, b in ((0, 1), (1, 0), (1, 1)):
            self.check(store_buffering, ("rlx", "acq_rel", "sc"), a=a, b=b)


class FenceTest(unittest.TestCase):
    def test_fences_of_seq_cst_refuse_store_buffering(self):
        for order, seen in (("sc", False), ("acq_rel", True)):
            threads = [[step[0], fence(order), step[1]] for step in store_buffering("rlx")]
            self.assertEqual(sees(threads, a=0, b=0), seen)

    def test_fences_of_acquire_and_release_pass_messages(self):
        threads = [[step[0], fence("acq_rel"), step[1]] for step in message_passing("rlx")]
        self.assertFalse(sees(threads, a=1, b=0))


class ExchangeTest(unittest.TestCase):
    def test_two_exchanges_never_see_the_same_value(self):
        self.assertFalse(sees([[exchange("x", 1, "rlx", "a")], [exchange("x", 2, "rlx", "b")]], a=0, b=0))

    def test_an_exchange_reads_no_write_that_comes_after_it(self):
        for order in ("rlx", "acq_rel", "sc"):
            threads = [[exchange("x", 1, order, "a")], [store("x", 2, order)]]
            self.assertFalse(sees(threads, a=2, x=2))
            self.assertTrue(sees(threads, a=2, x=1))

    def test_two_exchanges_never_see_the_same_store(self):
        for order in ("rlx", "acq_rel", "sc"):
            threads = [[exchange("x", 1, order, "a")], [exchange("x", 2, order, "b")], [store("x", 3, order)]]
            self.assertFalse(sees(threads, a=3, b=3))
            self.assertTrue(sees(threads, a=3, b=1))

    def test_exchanges_continue_a_release_sequence(self):
        threads = [[store("x", 1, "rlx"), store("y", 1, "acq_rel")], [exchange("y", 2, "rlx", "c")],
                   [load("a", "y", "acq_rel"), load("b", "x", "rlx")]]
        self.assertFalse(sees(threads, a=2, b=0, c=1))
        self.assertTrue(sees(threads, a=2, b=0, c=0))

    def test_exchanges_of_acquire_and_release_do_not_refuse_store_buffering(self):
        for order, seen in (("acq_rel", True), ("sc", False)):
            self.assertEqual(sees([[exchange("x", 1, order), load("a", "y", order)],
                                   [exchange("y", 1, order), load("b", "x", order)]], a=0, b=0), seen)

    def test_mixed_orders_are_as_weak_as_the_repaired_model_says(self):
        threads = [[store("x", 1, "sc"), store("y", 1, "acq_rel")],
                   [exchange("y", 2, "sc", "a"), load("b", "y", "rlx")],
                   [store("y", 3, "sc"), load("c", "x", "sc")]]
        self.assertTrue(sees(threads, a=1, b=3, c=0))


class GuardTest(unittest.TestCase):
    def test_what_depends_on_a_load_that_did_not_run_does_not_run(self):
        threads = [[store("x", 1, "sc"), store("y", 1, "sc")],
                   [load("a", "x", "sc"), load("b", "y", "sc", ("a", (1,))), store("z", 1, "sc", ("b", (1,)))]]
        self.assertTrue(sees(threads, a=0, z=0))
        self.assertTrue(sees(threads, a=1, b=1, z=1))
        self.assertFalse(sees(threads, a=0, z=1))


class RaceTest(unittest.TestCase):
    def test_plain_data_behind_a_flag_races_unless_the_flag_synchronises(self):
        for order, expected in (("rlx", True), ("acq_rel", False), ("sc", False)):
            self.assertEqual(races([[store("x", 1, "na"), store("y", 1, order)],
                                    [load("a", "y", order), load("b", "x", "na", ("a", (1,)))]]), expected)


if __name__ == "__main__":
    unittest.main()
