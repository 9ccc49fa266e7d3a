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


THIRD = 0.33
CERTIFICATES = "Certificates"
COPIES = "Copies"
BUFFERS = "Buffers"
CODECS = "Codecs"
TOKEN = "Tokens"
STORE = "Windows stores"

CODEC_GOALS = {20: 1.0, 1_048_576: 2.0}
CODEC_SIZES = [20, 1_048_576]

ROWS = [
    Row("decode", "decode a certificate", CERTIFICATES, {0: THIRD}, 1),
    Row("read", "decode, read and render a certificate", CERTIFICATES, {0: 0.5}),
    Row("encode", "encode a certificate as it was", CERTIFICATES, {0: THIRD}, 0),
    Row("encodeanew", "encode a certificate from its values", CERTIFICATES, {0: THIRD}),
    Row("copycertificate", "copy a certificate", CERTIFICATES, {0: THIRD}, 0),
    Row("copymap", "copy a map of {size} certificates", COPIES, {0: 1.0}, sizes=[1_000],
        axis="certificates in the map"),
    Row("copyevent", "copy an event", COPIES, {0: 1.0}),
    Row("copyshort", "copy {size} characters", BUFFERS, {0: 1.0}, 0),
    Row("copylong", "copy {size} characters", BUFFERS, {0: 1.0}, 0, sizes=[1_000],
        axis="characters"),
    Row("append", "append {size} characters one by one", BUFFERS, {0: 1.0}, sizes=[10, 1_000],
        axis="characters"),
    Row("mapkey", "look up one of {size} container names", BUFFERS, {0: 1.0}, sizes=[1_000],
        axis="names in the map"),
    Row("hex", "{size} bytes to hexadecimal", CODECS, CODEC_GOALS, sizes=CODEC_SIZES,
        axis="bytes"),
    Row("utf8decodeascii", "{size} ASCII characters from UTF-8", CODECS, CODEC_GOALS,
        sizes=CODEC_SIZES, axis="characters"),
    Row("utf8decodemixed", "{size} mixed characters from UTF-8", CODECS, CODEC_GOALS,
        sizes=CODEC_SIZES, axis="characters"),
    Row("utf8encodeascii", "{size} ASCII characters to UTF-8", CODECS, CODEC_GOALS,
        sizes=CODEC_SIZES, axis="characters"),
    Row("utf8encodemixed", "{size} mixed characters to UTF-8", CODECS, CODEC_GOALS,
        sizes=CODEC_SIZES, axis="characters"),
    Row("harvest", "read a token with {size} certificates", TOKEN, {0: 1.05}, sizes=[20, 1_000],
        axis="certificates with a key"),
    Row("classify", "classify {size} certificates by {size} keys", TOKEN, {0: 1.2},
        sizes=[10_000], axis="certificates, and as many keys"),
    Row("storeadd", "register {size} certificates", STORE, {0: 1.05}, sizes=[1_000],
        axis="certificates"),
    Row("storefind", "find {size} certificates", STORE, {0: 1.05}, sizes=[1_000],
        axis="certificates"),
    Row("storelist", "list {size} certificates", STORE, {0: 1.05}, sizes=[1_000],
        axis="certificates"),
    Row("storeremove", "remove {size} certificates", STORE, {0: 1.05}, sizes=[1_000],
        axis="certificates"),
    Row("update", "the program updates a store with {size} certificates", STORE),
    Row("updatenothing", "the program finds nothing to do for {size} certificates", STORE),
    Row("updatestatus", "the program compares {size} certificates", STORE),
    Row("load", "load the DLL", STORE),
    Row("firstcall", "call it for the first time", STORE),
]
