import { label } from "./words";

/** The words of the set's replies in the language of the page. A word that the page does not know is shown as it is. */

type Names = Readonly<Record<string, Parameters<typeof label>[0]>>;

const lists: Names = { air: "IDS_AIR", cable: "IDS_CABLE", satellite: "IDS_SATELLITE" };

const flags: Names = {
  blocked: "IDS_BLOCKED",
  skipped: "IDS_SKIPPED",
  hidden: "IDS_HIDDEN",
  scrambled: "IDS_SCRAMBLED",
  radio: "IDS_RADIO",
  data: "IDS_DATA",
};

const nameIn = (names: Names, word: string): string => (names[word] ? label(names[word]) : word);

/** A channel list, or the medium that it comes by. */
export const listName = (word: string): string => nameIn(lists, word);
export const flagName = (word: string): string => nameIn(flags, word);
