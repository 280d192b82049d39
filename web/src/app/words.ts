import { signal, untracked } from "@preact/signals";

/** The page's words in the language of the television's menus. app/language.ts reads them. */

/** Words that several features use, with the English text for a television that has none. */
const shared = {
  IDS_CALLBACK: "callback",
  IDS_CALL_AT: "{0} s · thread {1}",
  IDS_CANCEL: "Cancel",
  IDS_CANNOT_SUBSCRIBE: "Cannot subscribe to {0}: {1}",
  IDS_CLOSE: "Close",
  IDS_CONNECTED: "Connected",
  IDS_CONNECTION_LOST: "The connection to the host was lost. What was sent may still be carried out.",
  IDS_DELETE: "Delete",
  IDS_DELETE_QUESTION: "Delete “{0}”?",
  IDS_DISCONNECTED: "Disconnected",
  IDS_DROPPED: "{0} messages were lost: the queue overflowed.",
  IDS_DROPPED_ONE: "1 message was lost: the queue overflowed.",
  IDS_GAP: "Not connected from {0} to {1} ({2} s).",
  IDS_INSERT: "Insert",
  IDS_LANGUAGE_REFUSED: "The television did not accept the language “{0}”.",
  IDS_LOOK_ONLY:
    "This view needs the token: open the address that dtv-host printed (it ends with #token=...)",
  IDS_MENU_LANGUAGE: "Menu language",
  IDS_NEAREST: "The nearest ones are:",
  IDS_NOTHING_FOUND: "Nothing found",
  IDS_NOTIFICATIONS: "Notifications",
  IDS_NOT_ANSWERING: "Not answering",
  IDS_NOT_CONNECTED_HOST: "Not connected to the host.",
  IDS_NOT_UNDONE: "This cannot be undone.",
  IDS_NO_ACCESS: "This page may not use the television: open the address that dtv-host printed (it ends with #token=...)",
  IDS_NO_ANSWER_WITHIN: "No answer to \"{0}\" within {1} s.",
  IDS_OFF: "Off",
  IDS_ON: "On",
  IDS_OUT: "out",
  IDS_REFUSED_URI: "{0} was refused: {1}",
  IDS_RESULT_OF_PLATFORM: "a result of the platform's own",
  IDS_RETRY: "Retry",
  IDS_SEARCH: "Search",
  IDS_SOUND: "Sound",
  IDS_START_OF_PAGE: "dtv inspector, start",
  IDS_STICK_FOLDER: "Folder to insert as a USB stick",
  IDS_STICK_ROOT: "Folders in {0} can be inserted.",
  IDS_SUBSCRIBE: "Subscribe",
  IDS_THEME: "Colours of this page",
  IDS_THEME_DARK: "Dark",
  IDS_THEME_LIGHT: "Light",
  IDS_THEME_SYSTEM: "As the system",
  IDS_TOOK: "took {0} ms",
  IDS_UNSUBSCRIBE: "Unsubscribe",
  IDS_VIEWS: "Views",
  IDS_VOLUME: "Volume",
};

/** The English texts by id. The page shows them where the television has no text. */
export const english: Record<string, string> = { ...shared };
/** By id: the texts that the television has. */
export const texts = signal<Readonly<Record<string, string>>>({});

/**
 * Adds a feature's own words, by their id at the television. Returns the look-up of these and the shared words, which
 * replaces {0}, {1} and so on by the values.
 */
export function words<Own extends Record<string, string>>(own: Own) {
  Object.assign(english, own);
  return (id: (keyof Own & string) | keyof typeof shared, ...values: (string | number)[]): string =>
    (texts.value[id] || (english[id] ?? "")).replace(/\{(\d)\}/g, (hole, at) => String(values[Number(at)] ?? hole));
}

export const label = words({});

/** A word outside of components. An effect that leads here must not run again because the language has changed. */
export const wordNow: typeof label = (...given) => untracked(() => label(...given));
