import { effect, signal } from "@preact/signals";
import { access, configNotifyUri, connection, getItem, listen, setItem, tell, tellError } from "./session";

/** The page's words in the language of the television's menus, and that language itself. */

/** What is shown where the television has no text. */
const english = {
  IDS_ADD: "Add",
  IDS_CALLS: "Calls",
  IDS_CHANNEL: "Channel",
  IDS_CLEAR: "Clear",
  IDS_CLOSE: "Close",
  IDS_COLOUR: "Colour",
  IDS_CONFIGURATION: "Configuration",
  IDS_CONNECTED: "Connected",
  IDS_DEFAULT: "Default",
  IDS_DISCONNECTED: "Disconnected",
  IDS_KEY: "Key",
  IDS_LIMITS: "Limits",
  IDS_LIVE: "Live",
  IDS_LOOK_ONLY:
    "This page may look, but not control the set: open the address that dtv-host printed (it ends with #token=...)",
  IDS_MENU: "Menu",
  IDS_MENU_LANGUAGE: "Menu language",
  IDS_MUTE: "Mute",
  IDS_NOTHING_FOUND: "Nothing found",
  IDS_NOTIFICATIONS: "Notifications",
  IDS_NOT_DEFAULT: "Not the default",
  IDS_NO_ACCESS: "This page may not use the set: open the address that dtv-host printed (it ends with #token=...)",
  IDS_OFF: "Off",
  IDS_ON: "On",
  IDS_PAUSE: "Pause",
  IDS_PICTURE: "Picture",
  IDS_PLAY: "Play",
  IDS_POWER: "Power",
  IDS_RECEIVED: "received",
  IDS_REMOTE_CONTROL: "Remote control",
  IDS_REQUEST: "Request",
  IDS_RESPONSE: "Response",
  IDS_RETRY: "Retry",
  IDS_SEARCH: "Search",
  IDS_SEND: "Send",
  IDS_SOUND: "Sound",
  IDS_SUBSCRIBE: "Subscribe",
  IDS_SUBSCRIPTIONS: "Subscriptions",
  IDS_UNSUBSCRIBE: "Unsubscribe",
  IDS_URIS: "URIs",
  IDS_VALUE: "Value",
  IDS_VALUES: "values",
  IDS_VOLUME: "Volume",
};

export type LabelId = keyof typeof english;

const ids = Object.keys(english) as LabelId[];
const texts = signal<Partial<Record<LabelId, string>>>({});

export const label = (id: LabelId): string => texts.value[id] || english[id];

/** Languages that the menu may have, in their own words, and their tags for the browser. */
export const languages: readonly { code: string; name: string; tag: string }[] = [
  { code: "eng", name: "English", tag: "en" },
  { code: "deu", name: "Deutsch", tag: "de" },
  { code: "fra", name: "Français", tag: "fr" },
  { code: "spa", name: "Español", tag: "es" },
  { code: "tur", name: "Türkçe", tag: "tr" },
];

const languageUri = "/tv/menu/common_setting/gui_language";
const languageKey = "g_gui_lang__gui_language";

/** The three letters of the menu's language; null until they are known. */
export const language = signal<string | null>(null);

async function readText(id: LabelId): Promise<string> {
  const { langString } = await getItem("/tv/config/language_string", { REQUEST: "QUERY", langId: id });
  return typeof langString === "string" ? langString : "";
}

async function readLanguage(): Promise<string> {
  const { TEXT } = await getItem(languageUri);
  return typeof TEXT === "string" ? TEXT : "";
}

async function readTexts(): Promise<typeof texts.value> {
  // A television without texts refuses each of them; one refusal tells it.
  const [first, ...rest] = ids;
  const read = async (id: LabelId) => [id, await readText(id)] as const;
  const known = first ? [await read(first)] : [];
  return Object.fromEntries([...known, ...(await Promise.all(rest.map(read)))]);
}

let reads = 0;

async function readAll() {
  const read = ++reads;
  const [code, found] = await Promise.allSettled([readLanguage(), readTexts()]);
  // The language has changed again, or the connection is gone: what was read may be of two languages. A page that may
  // not ask keeps the words that it has.
  if (read !== reads || connection.value.name !== "open" || access.value === "none") return;
  language.value = code.status === "fulfilled" ? code.value : "";
  texts.value = found.status === "fulfilled" ? found.value : {};
  const tag = languages.find((each) => each.code === language.value)?.tag;
  document.documentElement.lang = found.status === "fulfilled" && tag ? tag : "en";
}

/** Every set of the language is answered with success; only a read tells what came of it. */
export async function setLanguage(code: string) {
  try {
    await setItem(languageUri, { REQUEST: "MODIFY", VALUE: code });
    void readAll();
    language.value = await readLanguage();
    if (language.value !== code) tell(`The television did not take the language "${code}".`);
  } catch (reason) {
    tellError(reason);
  }
}

effect(() => {
  if (connection.value.name === "open") void readAll();
});
listen(configNotifyUri, ({ ARG2 }) => {
  if (ARG2 === languageKey) void readAll();
});
