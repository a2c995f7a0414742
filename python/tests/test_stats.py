"""Numbers of a node."""

from __future__ import annotations

import pytest
from conftest import Run

from coaprpc import Node, NodeClosed

POST, CLASS_2, ANSWERED = 2, 2, 1


def test_a_call_is_counted_on_both_sides(run: Run, port: int) -> None:
    async def main() -> None:
        async with Node(port=port) as server, Node() as client:

            @server.serve("a")
            def answer(_request: object) -> str:
                return "x"

            before = server.stats()
            assert before["callbacks"] == 0
            assert before["in"]["messages"] == 0
            await client.call(f"coap://127.0.0.1:{port}/a", "q")
            now, asked = server.stats(), client.stats()
        assert now["in"]["requests"][POST] == asked["out"]["requests"][POST] == 1
        assert now["out"]["responses"][CLASS_2] == asked["in"]["responses"][CLASS_2] == 1
        assert now["callbacks"] == 1
        assert sum(now["callbackTimes"]["num"]) == 1
        assert asked["callEnds"][ANSWERED] == asked["calls"] == 1
        assert "size" not in now

    run(main)


def test_a_closed_node_has_none(run: Run) -> None:
    async def main() -> None:
        node = Node()
        with pytest.raises(NodeClosed):
            node.stats()
        async with node:
            pass
        with pytest.raises(NodeClosed):
            node.stats()

    run(main)
