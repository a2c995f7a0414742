"""Records: bytes on the wire, and what does not fit them."""

from __future__ import annotations

import pytest

from coaprpc import record
from coaprpc._record import codec_of, widths


@record("!HxB4s4s")
class Row:
    number: int
    flag: int
    name: str
    raw: bytes


def test_fields_are_packed_in_order_and_padded() -> None:
    codec = codec_of(Row)
    data = codec.pack(Row(258, 3, "ab", b"wxyz"))
    assert data == b"\x01\x02\x00\x03ab\0\0wxyz"
    assert codec.size == len(data) == 12
    assert codec.unpack(data) == Row(258, 3, "ab", b"wxyz")


def test_text_that_is_not_utf8_keeps_its_bytes() -> None:
    codec = codec_of(Row)
    data = b"\0\1\0\1\xff\xfea\0wxyz"
    assert codec.pack(codec.unpack(data)) == data


def test_repeated_items_are_fields_each() -> None:
    @record("<3H2x")
    class Three:
        a: int
        b: int
        c: int

    assert codec_of(Three).pack(Three(1, 2, 3)) == b"\1\0\2\0\3\0\0\0"


@pytest.mark.parametrize(
    "row",
    [
        Row(65536, 0, "", b"1234"),
        Row(-1, 0, "", b"1234"),
        Row(0, 0, "abcde", b"1234"),
        Row(0, 0, "éé\N{SNOWMAN}", b"1234"),
        Row(0, 0, "a\0", b"1234"),
        Row(0, 0, "", b"123"),
        Row(0, 0, "", b"12345"),
        Row("1", 0, "", b"1234"),  # type: ignore[arg-type]
        Row(None, 0, "", b"1234"),  # type: ignore[arg-type]
    ],
)
def test_value_that_does_not_fit_raises_value_error(row: Row) -> None:
    with pytest.raises(ValueError, match=r"."):
        codec_of(Row).pack(row)


@pytest.mark.parametrize("row", [Row(0, 0, b"", b"1234"), Row(0, 0, "", "1234")])  # type: ignore[arg-type]
def test_text_of_wrong_type_raises_type_error(row: Row) -> None:
    with pytest.raises(TypeError):
        codec_of(Row).pack(row)


@pytest.mark.parametrize("value", [None, (1, 2, "", b""), object(), Row])
def test_object_of_another_class_raises_type_error(value: Row) -> None:
    with pytest.raises(TypeError):
        codec_of(Row).pack(value)


@pytest.mark.parametrize("layout", ["H", "@H", "=H", "!P", "!n", "!p", "!H ", "", "!Z", "!\u0663H"])
def test_layout_without_byte_order_or_with_pointers_is_refused(layout: str) -> None:
    with pytest.raises(ValueError, match="a layout is"):

        @record(layout)
        class Bad:
            a: int


@pytest.mark.parametrize("layout", ["!65001s", "!999999999i", "!999999999999s", "!" + "9" * 30 + "s"])
def test_layout_of_more_bytes_than_a_row_has_is_refused(layout: str) -> None:
    with pytest.raises(ValueError, match="at most 65000 bytes"):
        widths(layout)
    with pytest.raises(ValueError, match="at most 65000 bytes"):

        @record(layout)
        class Bad:
            a: int


def test_layout_with_other_number_of_fields_is_refused() -> None:
    with pytest.raises(ValueError, match=r"2 fields and Bad 1"):

        @record("!HH")
        class Bad:
            a: int


def test_class_that_is_no_record_is_refused() -> None:
    class Derived(Row):
        pass

    for cls in (int, object, Derived):
        with pytest.raises(TypeError, match="no layout"):
            codec_of(cls)
