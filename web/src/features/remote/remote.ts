import { computed, signal } from "@preact/signals";
import { controllable } from "../../app/commands";
import { list, RefusedError, setItem, television, textOf } from "../../app/session";
import { textOfMessage, type Message } from "../screen/menu";
import { label } from "./words";

type LabelId = Parameters<typeof label>[0];

/** The remote control: the plugin reports which keys there are; their arrangement is decided here. */

const keyUri = "/tv/key/irrc";

interface Place {
  id: string;
  title: LabelId;
  /** Row by row, separated by spaces. */
  keys: string;
}

const places: readonly Place[] = [
  { id: "power", title: "IDS_POWER", keys: "POWER SOURCE SLEEP TIMER" },
  { id: "digits", title: "IDS_CHANNEL", keys: "1 2 3 4 5 6 7 8 9 . 0 PRE-CH" },
  { id: "volume", title: "IDS_VOLUME", keys: "VOL+ CH+ VOL- CH- MUTE VOL_UI" },
  {
    id: "menu",
    title: "IDS_MENU",
    keys: "MENU UP GUIDE LEFT ENTER RIGHT INFO DOWN EXIT FAVORITE FAVCH+/- ADD/ERASE",
  },
  { id: "colours", title: "IDS_COLOUR", keys: "RED GREEN YELLOW BLUE" },
  { id: "playback", title: "IDS_PLAY", keys: "FR FF PREV NEXT ROOTMENU TITLE/PBC REPEAT ANGLE" },
  { id: "picture", title: "IDS_PICTURE", keys: "ASPECT ZOOM FREEZE P.EFFECT PIP/POP PIPPOS PIPSIZE SWAP" },
  { id: "sound", title: "IDS_SOUND", keys: "S.EFFECT MTS/AUDIO SUBTITLE CC" },
];

export interface KeyGroup {
  id: string;
  /** Empty for the keys that no place names. */
  title: LabelId | "";
  keys: string[];
}

/** The keys that the plugin reports, by place; null if it reports none. */
export const keyGroups = computed((): KeyGroup[] | null => {
  const names = list.value?.uris.find((row) => row.uri === keyUri)?.values?.map(({ value }) => String(value));
  if (!names) return null;
  const placed = places.map(({ id, title, keys }) => ({
    id,
    title,
    keys: keys.split(" ").filter((key) => names.includes(key)),
  }));
  const rest = names.filter((name) => !placed.some((group) => group.keys.includes(name)));
  return [...placed, { id: "more", title: "" as const, keys: rest }].filter((group) => group.keys.length > 0);
});

/** The keys of a keyboard that press a key of the remote control. */
export const shortcuts: Readonly<Record<string, string>> = {
  ...Object.fromEntries([..."0123456789"].map((digit) => [digit, digit])),
  ".": ".",
  "+": "VOL+",
  "-": "VOL-",
  m: "MUTE",
  PageUp: "CH+",
  PageDown: "CH-",
  ArrowUp: "UP",
  ArrowDown: "DOWN",
  ArrowLeft: "LEFT",
  ArrowRight: "RIGHT",
  Escape: "EXIT",
};

export interface Press {
  key: string;
  /** Why the press failed; empty if it did not. */
  problem: string;
  /** What the set says about it, such as that it has no effect now; empty if it says nothing. */
  message: string;
  number: number;
}

export const lastPress = signal<Press | null>(null);

let presses = 0;

export async function press(key: string) {
  const number = ++presses;
  let problem = "";
  let message = "";
  try {
    await setItem(keyUri, { REQUEST: "MODIFY", VALUE: key });
    message = await messageOfSet();
  } catch (reason) {
    problem = reason instanceof RefusedError ? whyRefused(reason) : textOf(reason);
  }
  if (number === presses) lastPress.value = { key, problem, message, number };
}

/** The message that the set shows. A page without the token, and a set that is no virtual television, have none. */
async function messageOfSet(): Promise<string> {
  if (!controllable.peek()) return "";
  const { message } = await television("state").catch(() => ({ message: undefined }));
  return message === undefined ? "" : textOfMessage(message as unknown as Message);
}

/** The plugin returns -1 for a key only if it cannot open the device, of which the host knows nothing. */
const whyRefused = ({ ret, reason }: RefusedError): string =>
  ret === -1 ? `${reason}: ${label("IDS_COMMAND_DEVICE")}.` : reason;
