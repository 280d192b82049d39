import { Fragment } from "preact";

/** A name that may wrap after each "_" and "/". */
export const Breakable = ({ text }: { text: string }) => (
  <>
    {text.split(/(?<=[_/])/).map((piece, index) => (
      <Fragment key={index}>
        {index > 0 && <wbr />}
        {piece}
      </Fragment>
    ))}
  </>
);
