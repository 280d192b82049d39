import { markWords } from "../lib/search";
import { Breakable } from "./breakable";

/** A text in which the words of a search are marked. */
export const Marked = ({ text, words }: { text: string; words: string[] }) => (
  <>
    {markWords(text, words).map((piece, index) =>
      piece.hit ? (
        <mark key={index}>
          <Breakable text={piece.text} />
        </mark>
      ) : (
        <Breakable key={index} text={piece.text} />
      ),
    )}
  </>
);
