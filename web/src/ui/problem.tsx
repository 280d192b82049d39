/** Why something failed, as an alert; nothing for an empty text. */
export const Problem = ({ text }: { text: string }) =>
  text ? (
    <p class="bad" role="alert">
      {text}
    </p>
  ) : null;
