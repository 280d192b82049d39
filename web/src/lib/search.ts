/** The words of a search, in lower case. A text matches when it contains every word. */
export const searchWords = (text: string): string[] => text.toLowerCase().split(/\s+/).filter(Boolean);

/** Splits a text into pieces that match one of the words and pieces that do not. */
export function markWords(text: string, words: string[]): { text: string; hit: boolean }[] {
  if (words.length === 0) return [{ text, hit: false }];
  const escaped = words.map((word) => word.replace(/[.*+?^${}()|[\]\\]/g, "\\$&"));
  return text
    .split(new RegExp(`(${escaped.join("|")})`, "i"))
    .map((piece, index) => ({ text: piece, hit: index % 2 === 1 }))
    .filter((piece) => piece.text !== "");
}
