"""Watches in the loop of asyncio."""
import asyncio
import os
import pathlib
import threading
import time
from typing import NoReturn

import pytest
import vqreg
from support import PATIENCE, away, start

SET = """
with vqreg.Store(sys.argv[1]) as s:
    for i in range(5):
        sys.stdin.readline()
        s["K", "n"] = i
"""


def test_async_for_gives_changes_while_the_loop_goes_on(store: vqreg.Store,
                                                        path: pathlib.Path) -> None:
    store.create("K")
    turns = 0

    async def count() -> None:
        nonlocal turns
        while True:
            await asyncio.sleep(0)
            turns += 1

    async def follow() -> list[vqreg.Value | None]:
        counter = asyncio.create_task(count())
        setter = start(SET, str(path))
        assert setter.stdin is not None
        seen = []
        watch = store.watch("K", timeout=PATIENCE)
        setter.stdin.write("\n")
        setter.stdin.flush()
        async for change in watch:
            seen.append(change.after)
            if len(seen) == 5:
                break
            setter.stdin.write("\n")
            setter.stdin.flush()
        counter.cancel()
        setter.communicate(timeout=PATIENCE)
        return seen

    assert asyncio.run(follow()) == [0, 1, 2, 3, 4]
    assert turns > 10


def test_async_for_ends_after_its_timeout(store: vqreg.Store) -> None:
    async def follow() -> list[str | None]:
        watch = store.watch("K", timeout=0.05)
        store["K", "n"] = 1
        return [change.name async for change in watch]

    begin = time.monotonic()
    assert asyncio.run(follow()) == [None, "n"]
    assert time.monotonic() - begin >= 0.05


def test_several_watches_wait_beside_each_other(store: vqreg.Store) -> None:
    async def first(path: str) -> vqreg.Change:
        return await store.watch(path, timeout=PATIENCE).__anext__()

    async def main() -> list[str]:
        tasks = [asyncio.create_task(first(path)) for path in ("A", "B", "C")]
        await asyncio.sleep(0)
        for path in ("C", "A", "B"):
            await asyncio.to_thread(store.create, path)
        return [change.path for change in await asyncio.gather(*tasks)]

    assert asyncio.run(main()) == ["A", "B", "C"]


def test_task_that_waits_can_be_cancelled(store: vqreg.Store) -> None:
    async def main() -> None:
        watch = store.watch("K")
        task = asyncio.create_task(watch.__anext__())
        await asyncio.sleep(0)
        task.cancel()
        with pytest.raises(asyncio.CancelledError):
            await task
        assert not asyncio.get_running_loop().remove_reader(watch.fileno())
        watch.timeout = PATIENCE
        store.create("K")
        assert (await watch.__anext__()).path == "K"

    asyncio.run(main())


def test_task_that_is_woken_can_be_cancelled(store: vqreg.Store) -> None:
    async def main() -> None:
        watch = store.watch("K")
        tasks: list[asyncio.Task[None]] = []

        async def follow() -> None:
            async for _ in watch:
                for task in tasks:
                    if task is not asyncio.current_task():
                        task.cancel()
                return

        tasks += [asyncio.create_task(follow()) for _ in range(2)]
        await asyncio.sleep(0)
        store.create("K")
        _, pending = await asyncio.wait(tasks, timeout=PATIENCE / 2)
        for task in pending:
            task.cancel()
        assert not pending and sum(task.cancelled() for task in tasks) == 1

    asyncio.run(main())


def test_reader_of_a_loop_is_told(store: vqreg.Store) -> None:
    async def main() -> vqreg.Change | None:
        watch = store.watch("K")
        loop = asyncio.get_running_loop()
        news = asyncio.Event()
        loop.add_reader(watch, news.set)
        await asyncio.to_thread(store.create, "K")
        await asyncio.wait_for(news.wait(), PATIENCE)
        loop.remove_reader(watch)
        return watch.poll()

    change = asyncio.run(main())
    assert change is not None and change.path == "K"


def test_async_for_waits_while_the_directory_is_away(path: pathlib.Path) -> None:
    async def main() -> vqreg.Change:
        with away(path) as (watch, bring_back):
            task = asyncio.create_task(watch.__anext__())
            while not watch._tasks and not task.done():  # until it waits
                await asyncio.sleep(0)
            bring_back()
            return await asyncio.wait_for(task, PATIENCE / 2)

    assert asyncio.run(main()) == ("K", "n", 1, 2, True)


def test_each_change_goes_to_one_of_several_tasks(store: vqreg.Store) -> None:
    store.create("K")

    async def main() -> None:
        watch = store.watch("K", timeout=PATIENCE)
        for i in range(10):
            tasks = [asyncio.create_task(watch.__anext__()) for _ in range(3)]
            await asyncio.sleep(0)
            await asyncio.to_thread(lambda: store.key("K").update(a=i, b=i, c=i))
            changes = await asyncio.wait_for(asyncio.gather(*tasks), PATIENCE / 2)
            assert sorted(change.name or "" for change in changes) == ["a", "b", "c"]

    asyncio.run(main())


def test_async_for_leaves_the_readers_of_others(store: vqreg.Store) -> None:
    async def main() -> None:
        watch = store.watch("K", timeout=PATIENCE)
        loop = asyncio.get_running_loop()
        news = asyncio.Event()
        loop.add_reader(watch, news.set)
        task = asyncio.create_task(watch.__anext__())
        await asyncio.sleep(0)
        await asyncio.to_thread(store.create, "K")
        assert (await task).path == "K"
        assert loop.remove_reader(watch) and news.is_set()

    asyncio.run(main())


def test_task_ends_when_the_watch_is_closed(store: vqreg.Store) -> None:
    async def follow() -> None:
        watch = store.watch("K")
        task = asyncio.create_task(watch.__anext__())
        await asyncio.sleep(0)
        watch.close()
        with pytest.raises(ValueError, match="the watch is closed"):
            await asyncio.wait_for(task, PATIENCE)

    asyncio.run(follow())


@pytest.mark.parametrize("elsewhere", [False, True])
def test_task_is_woken_for_what_poll_leaves(store: vqreg.Store, elsewhere: bool) -> None:
    store.create("K")

    def look(watch: vqreg.Watch) -> vqreg.Change | None:
        store.key("K").update(a=1, b=2)
        return watch.poll()

    async def main() -> list[vqreg.Change | None]:
        watch = store.watch("K", timeout=PATIENCE)
        task = asyncio.create_task(watch.__anext__())
        while not watch._tasks:  # until it waits
            await asyncio.sleep(0)
        if elsewhere:
            # The loop does nothing meanwhile.
            thread = threading.Thread(target=lambda: changes.append(look(watch)))
            changes: list[vqreg.Change | None] = []
            thread.start()
            thread.join()
            polled = changes[0]
        else:
            polled = look(watch)
        return [polled, await asyncio.wait_for(task, PATIENCE / 2)]

    first, second = asyncio.run(main())
    assert first is not None and second is not None and (first.name, second.name) == ("a", "b")


class WithoutReaders(asyncio.SelectorEventLoop):
    """A loop that watches no descriptors of its tasks."""

    def add_reader(self, *_: object) -> NoReturn:
        raise NotImplementedError

    def remove_reader(self, *_: object) -> NoReturn:
        raise NotImplementedError


def test_loop_without_readers_is_told_and_leaves_no_descriptor(store: vqreg.Store) -> None:
    watch = store.watch("K", timeout=PATIENCE)
    loop = WithoutReaders()
    before = os.listdir("/proc/self/fd")
    with pytest.raises(NotImplementedError):
        loop.run_until_complete(watch.__anext__())
    assert os.listdir("/proc/self/fd") == before and not watch._tasks
    loop.close()
