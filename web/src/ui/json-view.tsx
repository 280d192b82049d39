import { prettyJson, type Json } from "../lib/json";

// A text, with a colon if it is a key; a number; a word. Everything else is punctuation and space.
const token = /("(?:\\.|[^"\\])*")(\s*:)?|(-?\d+(?:\.\d+)?(?:[eE][+-]?\d+)?)|\b(true|false|null)\b/g;

/** JSON text with a colour for each kind of token. */
export function JsonText({ text }: { text: string }) {
  const parts = [];
  let end = 0;
  for (const match of text.matchAll(token)) {
    if (match.index > end) parts.push(text.slice(end, match.index));
    const kind = match[1] ? (match[2] ? "j-key" : "j-text") : match[3] ? "j-number" : "j-word";
    parts.push(<span class={kind}>{match[1] ?? match[0]}</span>);
    if (match[1] && match[2]) parts.push(match[2]);
    end = match.index + match[0].length;
  }
  parts.push(text.slice(end));
  return <>{parts}</>;
}

export const JsonBlock = ({ value, label }: { value: Json; label: string }) => (
  <pre class="code" tabIndex={0} aria-label={label}>
    <JsonText text={prettyJson(value)} />
  </pre>
);
