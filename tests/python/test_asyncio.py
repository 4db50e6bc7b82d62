"""Watches in the loop of asyncio."""
import asyncio
import pathlib
import time

import pytest
import vqreg
from support import PATIENCE, start

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
