import { effect, signal } from "@preact/signals";
import { tell } from "../ui/notice";
import { access, afterList, configNotifyUri, connection, getItem, listen, setItem, tellError } from "./session";
import { english, label, texts } from "./words";

export { label, words } from "./words";

/** The language of the television's menus, which is also that of the page's words. */

/** The languages that the menu may have: code at the television, name in the language itself, tag for the browser. */
export const languages: readonly { code: string; name: string; tag: string }[] = [
  { code: "eng", name: "English", tag: "en" },
  { code: "deu", name: "Deutsch", tag: "de" },
  { code: "fra", name: "Français", tag: "fr" },
  { code: "spa", name: "Español", tag: "es" },
  { code: "tur", name: "Türkçe", tag: "tr" },
];

const languageUri = "/tv/menu/common_setting/gui_language";
const languageKey = "g_gui_lang__gui_language";

/** The three-letter code of the menu's language; null until it is known. */
export const language = signal<string | null>(null);

async function readText(id: string): Promise<string> {
  const { langString } = await getItem("/tv/config/language_string", { REQUEST: "QUERY", langId: id });
  return typeof langString === "string" ? langString : "";
}

async function readLanguage(): Promise<string> {
  const { TEXT } = await getItem(languageUri);
  return typeof TEXT === "string" ? TEXT : "";
}

async function readTexts(): Promise<typeof texts.value> {
  // A television without texts refuses every one, so the first refusal ends the read.
  const [first, ...rest] = Object.keys(english);
  const read = async (id: string) => [id, await readText(id)] as const;
  const known = first ? [await read(first)] : [];
  return Object.fromEntries([...known, ...(await Promise.all(rest.map(read)))]);
}

let reads = 0;

async function readAll() {
  const read = ++reads;
  // If the language has changed again or the connection was lost, the texts may be a mix of two languages. A page
  // without access keeps its words.
  const isOver = () => read !== reads || connection.value.name !== "open" || access.value === "none";
  const code = await readLanguage().catch(() => "");
  // The English texts are in the page. Those of another language have 100 kB, which would delay the list.
  if (code !== "eng") await afterList();
  if (isOver()) return;
  const found = code === "eng" ? {} : await readTexts().catch(() => null);
  if (isOver()) return;
  language.value = code;
  texts.value = found ?? {};
  document.documentElement.lang = (found && languages.find((each) => each.code === code)?.tag) || "en";
}

/** The television reports success even for a language that it does not take, so the language is read back. */
export async function setLanguage(code: string) {
  try {
    await setItem(languageUri, { REQUEST: "MODIFY", VALUE: code });
    void readAll();
    language.value = await readLanguage();
    if (language.value !== code) tell(label("IDS_LANGUAGE_REFUSED", code));
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
