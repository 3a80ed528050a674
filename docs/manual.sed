# A labelled line of a contract becomes a paragraph of the reference manual.
s~^( */// )(units|range|owns|throws|codes|threads|cost|kept)  +~\1@par \2\n\1~
