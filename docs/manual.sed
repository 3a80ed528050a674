# A labelled line of a contract becomes a paragraph of the reference manual.
s~^( */// )(calls|units|range|owns|throws|codes|threads|cost|kept)  +~\1@par \2\n\1~

# A heading of a text page gets the anchor that links on the page name it by.
s~^(##+) ([A-Za-z]+( [A-Za-z]+)*)$~\1 \2 {#\L\2}~
:hyphens
s~(\{#[^ }]*) ([^}]*\})$~\1-\2~
t hyphens
