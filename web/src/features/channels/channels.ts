import { batch, effect, signal } from "@preact/signals";
import { useEffect } from "preact/hooks";
import { attempt, controllable } from "../../app/commands";
import { isForbidden } from "../../app/rpc";
import { listen, television, textOf } from "../../app/session";

/** The set's channel list, which is read in pages and read again whenever the set reports a change. */

export interface Channel {
  /** Names the channel in commands: "air:7", "cable:7.1". Unique. */
  word: string;
  number: number;
  /** "7" or "7.1" */
  shownNumber: string;
  name: string;
  list: string;
  flags: readonly string[];
  favourite: boolean;
  /** The text that a search examines, in lower case. */
  haystack: string;
}

interface ChannelReply {
  number: number;
  minor?: number;
  name: string;
  list: string;
  flags: string[];
}

type Page<Key extends string> = { [key in Key]: ChannelReply[] } & { count: number; next?: number };

const channelNotifyUri = "/tv/ws/notify/channel_info";
const tunedNotifyUri = "/tv/ws/notify/broadcast/chg_channel_res";

/** Null until the list is known. */
export const channels = signal<readonly Channel[] | null>(null);
/** Why the list could not be read; empty if it could. */
export const channelsProblem = signal("");
/** The word of the channel that the set shows; empty if it shows none. */
export const tuned = signal("");
export const tuneProblem = signal("");

const wordOf = ({ list, number, minor }: Pick<ChannelReply, "list" | "number" | "minor">): string =>
  `${list}:${number}${minor === undefined ? "" : `.${minor}`}`;

/** Reads all pages of "channels" or "favourites". */
async function readPages<Key extends "channels" | "favourites">(key: Key): Promise<ChannelReply[]> {
  const read = (from: number) => television(key, "from", String(from)) as unknown as Promise<Page<Key>>;
  const first = await read(1);
  const rest: Promise<Page<Key>>[] = [];
  // Every page but the last one is as long as the first.
  if (first.next !== undefined) {
    for (let from = first.next; from <= first.count; from += first.next - 1) rest.push(read(from));
  }
  return [first, ...(await Promise.all(rest))].flatMap((page) => page[key]);
}

async function readAll() {
  const [listed, liked] = await Promise.all([readPages("channels"), readPages("favourites")]);
  const favourites = new Set(liked.map(wordOf));
  // A change during the read may show a channel on two pages. The notification of that change starts another read.
  const known = new Map<string, Channel>();
  for (const reply of listed) {
    const { number, minor, name, list, flags } = reply;
    const word = wordOf(reply);
    const shownNumber = minor === undefined ? `${number}` : `${number}.${minor}`;
    const haystack = `${shownNumber} ${name} ${list} ${flags.join(" ")}`.toLowerCase();
    known.set(word, { word, number, shownNumber, name, list, flags, favourite: favourites.has(word), haystack });
  }
  channels.value = [...known.values()];
}

let reading = false;
let again = false;

/** Reads the list; if a read is under way, once more after it. */
export async function readChannels() {
  again = true;
  if (reading) return;
  reading = true;
  while (again) {
    again = false;
    try {
      await readAll();
      channelsProblem.value = "";
    } catch (reason) {
      channelsProblem.value = isForbidden(reason) ? "" : textOf(reason);
    }
  }
  reading = false;
}

interface TunerReply {
  channel: number | null;
  name?: string;
  list?: string;
}

function takeTuner({ channel, name, list }: TunerReply) {
  const shown = channels.peek()?.find((each) => each.number === channel && each.list === list && each.name === name);
  tuned.value = shown?.word ?? "";
}

const readTuner = () => television("tuner").then((reply) => takeTuner(reply as unknown as TunerReply));

export async function tune(channel: Channel) {
  const reply = await attempt<TunerReply>(tuneProblem, "tune", channel.word);
  if (reply) takeTuner(reply);
}

/** While the component is shown: keeps the channel list and the tuned channel up to date. */
export function useChannels() {
  const canRead = controllable.value;
  useEffect(() => {
    if (!canRead) return;
    const followTuner = () => {
      // The list tells why, if the set cannot be read.
      readTuner().catch(() => undefined);
    };
    void readChannels().then(followTuner);
    const unlisten = [listen(channelNotifyUri, () => void readChannels()), listen(tunedNotifyUri, followTuner)];
    const timer = setInterval(followTuner, 3000);
    return () => {
      unlisten.forEach((end) => end());
      clearInterval(timer);
    };
  }, [canRead]);
}

// Another set may be behind the same address after a reconnection.
effect(() => {
  if (!controllable.value) batch(() => (tuned.value = tuneProblem.value = ""));
});
