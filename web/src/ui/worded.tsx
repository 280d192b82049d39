import { Fragment } from "preact";

interface WordedProps {
  /** Text between backquotes is what the user types or presses literally: "press `Esc`". */
  text: string;
  as: "code" | "kbd";
}

/** A sentence with commands or keys in it. */
export const Worded = ({ text, as: Typed }: WordedProps) => (
  <>
    {text
      .split("`")
      .map((part, index) => (index % 2 === 1 ? <Typed key={index}>{part}</Typed> : <Fragment key={index}>{part}</Fragment>))}
  </>
);
