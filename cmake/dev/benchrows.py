"""What the benchmark's rows mean and what is expected of them."""

from dataclasses import dataclass, field

CONTENDER = "certstoreupdater"


@dataclass
class Row:
    work: str
    title: str  # {size} stands for the size
    group: str
    most: dict = field(default_factory=dict)  # size (0: any) -> largest ratio to the fastest other
    most_allocations: int | None = None
    sizes: list = field(default_factory=list)  # those in the table; none: all
    axis: str = ""  # what grows, if it does
    floor: str = ""  # what keeps it from its goal, shown when it misses it

    def shown_sizes(self, measured):
        return [size for size in measured if not self.sizes or size in self.sizes]

    def label(self, size):
        return self.title.format(size=f"{size:,}")

    def largest_ratio(self, size):
        return self.most.get(size, self.most.get(0))

    def goal(self, size):
        parts = []
        if (most := self.largest_ratio(size)) is not None:
            parts.append(f"≤ {most:.2f}")
        if self.most_allocations is not None:
            parts.append("no allocation" if self.most_allocations == 0
                         else f"{self.most_allocations} allocation")
        return ", ".join(parts)

    def goal_met(self, size, ratio, ours):
        most = self.largest_ratio(size)
        return ((most is None or ratio <= most) and
                (self.most_allocations is None or
                 ours.counters.get("allocations", 0) <= self.most_allocations + 0.01))


THIRD = 1 / 3
CERTIFICATES = "Certificates"
COPIES = "Copies"
BUFFERS = "Buffers"
CODECS = "Codecs"
TOKEN = "Tokens"
STORE = "Windows stores"

CODEC_GOALS = {20: 1.0, 1_048_576: 2.0}
CODEC_SIZES = [20, 1_048_576]

ROWS = [
    Row("decode", "decode a certificate", CERTIFICATES, {0: THIRD}, 1,
        floor="Nearly all of the time goes into checking the elements. The rest is one allocation, "
              "of a block too long for the allocator's fast path."),
    Row("decodegrowing", "decode a certificate of {size} bytes", CERTIFICATES,
        axis="bytes, nearly all of them extensions with 20 octets each"),
    Row("read", "decode, read and render a certificate", CERTIFICATES, {0: 0.5},
        floor="Two fifths of the instructions are the decode; a quarter makes the two texts, with "
              "one allocation each. The rest finds members: each question walks over the kept "
              "bytes, and nothing is remembered between two questions."),
    Row("encode", "encode a certificate as it was", CERTIFICATES, {0: THIRD}, 0),
    Row("encodeanew", "encode a certificate from its values", CERTIFICATES, {0: THIRD},
        floor="mbedTLS writes into memory that its caller provides. This library allocates the "
              "result, and first walks over the values, because in DER a length stands before the "
              "contents."),
    Row("copycertificate", "copy a certificate", CERTIFICATES, {0: THIRD}, 0),
    Row("copymap", "copy a map of {size} certificates", COPIES, {0: 1.0}, sizes=[1_000],
        axis="certificates in the map"),
    Row("copyevent", "copy an event", COPIES, {0: 1.0}),
    Row("copyeventwithparent", "copy an event and its parent", COPIES, {0: 1.0}),
    Row("copyshort", "copy {size} characters", BUFFERS, {0: 1.0}, 0),
    Row("copylong", "copy {size} characters", BUFFERS, {0: 1.0}, 0, sizes=[1_000],
        axis="characters"),
    Row("append", "append {size} characters one by one", BUFFERS, {0: 1.0}, sizes=[10, 1_000],
        axis="characters",
        floor="Each append checks, with an atomic load, that no copy shares the block. After such "
              "a load the size must be read from memory again, where a string that never shares "
              "keeps it in a register."),
    Row("mapkey", "look up one of {size} container names", BUFFERS, {0: 1.0}, sizes=[1_000],
        axis="names in the map",
        floor="Both compare with the C library's functions. The blocks of a buffer have room to "
              "grow, so the names lie farther apart in memory."),
    Row("hex", "{size} bytes to hexadecimal", CODECS, CODEC_GOALS, sizes=CODEC_SIZES,
        axis="bytes",
        floor="Most of the time goes into allocating the text, as it does for the others."),
    Row("utf8decodeascii", "{size} ASCII characters from UTF-8", CODECS, CODEC_GOALS,
        sizes=CODEC_SIZES, axis="characters",
        floor="A first walk counts the characters, so that the text is allocated once and no larger "
              "than it has to be."),
    Row("utf8decodemixed", "{size} mixed characters from UTF-8", CODECS, CODEC_GOALS,
        sizes=CODEC_SIZES, axis="characters",
        floor="A first walk counts the characters, so that the text is allocated once and no larger "
              "than it has to be."),
    Row("utf8encodeascii", "{size} ASCII characters to UTF-8", CODECS, CODEC_GOALS,
        sizes=CODEC_SIZES, axis="characters",
        floor="The room grows from block to block, instead of being allocated at once for the worst "
              "case."),
    Row("utf8encodemixed", "{size} mixed characters to UTF-8", CODECS, CODEC_GOALS,
        sizes=CODEC_SIZES, axis="characters",
        floor="The room grows from block to block, instead of being allocated at once for the worst "
              "case."),
    Row("harvest", "read a token with {size} certificates", TOKEN, {0: 1.05}, sizes=[20, 1_000],
        axis="certificates with a key",
        floor="The calls take nearly all of the time. On top of them come an allocation for each "
              "attribute, the decode, and more memory that stays in use, which makes the module's "
              "own allocations slower."),
    Row("readtoken", "print the {size} certificates of a token, as a program", TOKEN,
        sizes=[20, 1_000], axis="certificates with a key"),
    Row("classify", "classify {size} certificates by {size} keys", TOKEN, {0: 1.2},
        sizes=[10_000], axis="certificates, and as many keys"),
    Row("storeadd", "register {size} certificates", STORE, {0: 1.05}, sizes=[1_000],
        axis="certificates",
        floor="The calls are the same. On top of them come the key usage, the container's name and "
              "the binding property."),
    Row("storefind", "find {size} certificates", STORE, {0: 1.05}, sizes=[1_000],
        axis="certificates",
        floor="The calls are the same. On top of them, the binding property is parsed."),
    Row("storelist", "list {size} certificates", STORE, {0: 1.05}, sizes=[1_000],
        axis="certificates",
        floor="The bare calls only copy bytes. The library also decodes every certificate, because "
              "a listing promises valid ones: see \"decode a certificate\"."),
    Row("storeremove", "remove {size} certificates", STORE, {0: 1.05}, sizes=[1_000],
        axis="certificates",
        floor="The calls are the same."),
    Row("update", "the program updates a store with {size} certificates", STORE),
    Row("updatenothing", "the program finds nothing to do for {size} certificates", STORE),
    Row("updatestatus", "the program compares {size} certificates", STORE),
    Row("load", "load the DLL", STORE),
    Row("firstcall", "call it for the first time", STORE),
]
