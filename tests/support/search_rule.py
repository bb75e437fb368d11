"""What /MEM /S reports.

The search goes through the range in pages counted from its start. Each call of it (one for each hit) begins with an
empty page and loads the next one when it comes to a page's first byte, so behind a hit the rest of the hit's page is
not looked at. A byte that breaks a partial match is not compared with the text's first byte again."""

NOT_FOUND = 0x0E
ENDS_THE_RANGE = 0x15


def hits_by_the_rule(memory, length, text):
    pages = 0
    at = 0
    hits = []
    while True:
        page = bytes(0x1000)  # the buffer belongs to one call, the count of pages to the run
        matched = 0
        while at < length and matched < len(text):
            if pages == 0 or at % 0x1000 == 0:
                page = memory[pages * 0x1000 :][:0x1000]
                pages += 1
            matched = matched + 1 if page[at % 0x1000] == text[matched] else 0
            at += 1
        if matched < len(text):
            return hits, NOT_FOUND
        if at >= length:
            return hits, ENDS_THE_RANGE
        hits.append(at - len(text))


def report(text, addresses):
    out = f"<- (Ctrl+C: abort!)  searching: {text} ->\n"
    for count, address in enumerate(addresses, 1):
        out += f" ({count:04d}) {text} return address: {address:08X} " + ("\n" if count % 2 == 0 else "")
    return out
