import { markWords } from "../model/catalogue";
import { Breakable } from "./breakable";

/** A text with the words of a search in it marked. */
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
