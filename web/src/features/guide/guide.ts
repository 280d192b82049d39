import { batch, signal } from "@preact/signals";
import { isForbidden } from "../../app/rpc";
import { readClock, secondsOf, setNow } from "../../app/set-clock";
import { television, textOf } from "../../app/session";
import type { Channel } from "../channels/channels";

/**
 * The events of the programme guide. They are read in blocks: a few hours of a few neighbouring channels. A block stays
 * shown until it has been read again. Times are seconds of UTC.
 */

export interface GuideEvent {
  id: number;
  start: number;
  duration: number;
  title: string;
  /** DVB's content code: the genre is its upper four bits. */
  category?: number;
  age?: number;
  blocked?: boolean;
}

export interface EventDetails extends Omit<GuideEvent, "category"> {
  summary: string;
  details: string;
  series: string;
}

/** An event as a reply has it. */
type Told<Event extends { start: number; duration: number }> = Omit<Event, "start" | "duration"> & {
  start: string;
  seconds: number;
};

/** A part of a channel's row. Without an event, the guide knows nothing about that time. */
export interface Cell {
  from: number;
  to: number;
  event: GuideEvent | null;
}

interface ChannelEvents {
  number: number;
  name: string;
  events: Told<GuideEvent>[];
}

interface RangeReply {
  from: string;
  channels: ChannelEvents[];
  /** Channels for which the reply had no room. */
  left_out?: number;
}

interface Block {
  generation: number;
  /** By number and name of the channel. */
  events: ReadonlyMap<string, GuideEvent[]>;
}

export const hour = 3600;
const blockHours = 3;
const blockLength = blockHours * hour;
const blockChannels = 20;
/** Kept. A screen shows fewer than 20; the oldest is dropped. */
const mostBlocks = 60;
/** At the same time. */
const mostReads = 3;

// What the set's command accepts, in hours from the present one.
const firstHour = -24;
const lastHour = 24 * 62;

/** How many events the guide has; null until it is known. */
export const eventCount = signal<number | null>(null);
/** Why events could not be read; empty if they could. */
export const eventsProblem = signal("");
/** Changes whenever a block has been read. */
export const blocksRead = signal(0);
/** The present time; set with every poll. */
export const present = signal(0);

const blocks = new Map<string, Block>();
let generation = 0;
let reads = 0;
const underWay = new Set<string>();

const eventOf = <Event extends { start: number; duration: number }>({ start, seconds, ...rest }: Told<Event>): Event =>
  ({ ...rest, start: secondsOf(start), duration: seconds }) as unknown as Event;

const thisHour = (): number => Math.floor(setNow() / hour);
const keyOf = ({ number, name }: { number: number; name: string }): string => `${number} ${name}`;

/** The first time that the guide can show, and the end of the last. */
export const earliest = (): number => Math.ceil(((thisHour() + firstHour) * hour) / blockLength) * blockLength;
export const latest = (): number => Math.floor(((thisHour() + lastHour) * hour) / blockLength) * blockLength;

/** Every event may have changed: what is shown is read again. */
export function outdate() {
  generation++;
  blocksRead.value++;
}

export async function readStatus() {
  const [{ events }] = await Promise.all([television("guide"), readClock()]);
  batch(() => {
    present.value = setNow();
    if (eventCount.peek() !== events) outdate();
    eventCount.value = Number(events);
  });
}

/** The channels of the reply, read on if it had no room for all of them. */
async function readRange(first: number, last: number, begin: number): Promise<Map<string, GuideEvent[]>> {
  const found = new Map<string, GuideEvent[]>();
  for (let from = first; from <= last; ) {
    const hours = begin / hour - thisHour();
    const words = [from, last, hours, hours + blockHours].map(String);
    const reply = (await television("guide", "range", ...words)) as unknown as RangeReply;
    if (secondsOf(reply.from) !== begin) {
      // The set's hour has changed since its clock was read.
      await readClock();
      if (begin / hour - thisHour() === hours) throw new Error("The set's hour has just changed.");
      continue;
    }
    for (const channel of reply.channels) found.set(keyOf(channel), channel.events.map(eventOf<GuideEvent>));
    const end = reply.channels.at(-1)?.number;
    if (!reply.left_out || end === undefined) break;
    // The events of the last channel may be incomplete; a channel that is alone in a reply is not read again.
    from = end > from ? end : end + 1;
  }
  return found;
}

async function readBlock(key: string, channels: readonly Channel[], begin: number) {
  const numbers = channels.map(({ number }) => number);
  const wanted = generation;
  reads++;
  underWay.add(key);
  try {
    const events = await readRange(Math.min(...numbers), Math.max(...numbers), begin);
    blocks.delete(key);
    blocks.set(key, { generation: wanted, events });
    const [oldest] = blocks.keys();
    if (blocks.size > mostBlocks && oldest !== undefined) blocks.delete(oldest);
    eventsProblem.value = "";
    blocksRead.value++;
  } catch (reason) {
    eventsProblem.value = isForbidden(reason) ? "" : textOf(reason);
  } finally {
    underWay.delete(key);
    reads--;
  }
}

const blockKey = (begin: number, index: number): string => `${begin} ${Math.floor(index / blockChannels)}`;

/** Starts to read what is missing for the rows `first` to `end` (excluded) and the time, as far as reads are free. */
export function want(channels: readonly Channel[], first: number, end: number, from: number, to: number) {
  for (let begin = Math.floor(from / blockLength) * blockLength; begin < to; begin += blockLength) {
    for (let row = first - (first % blockChannels); row < end; row += blockChannels) {
      const key = blockKey(begin, row);
      if (reads >= mostReads) return;
      if (underWay.has(key) || blocks.get(key)?.generation === generation) continue;
      void readBlock(key, channels.slice(row, row + blockChannels), begin);
    }
  }
}

/** The channels or their order have changed: blocks are named by positions in the list. */
export function forgetBlocks() {
  blocks.clear();
  outdate();
}

/** The cells of a channel's row, which fill the time without gaps. Null if its events are not known yet. */
export function cellsOf(channel: Channel, row: number, from: number, to: number): Cell[] | null {
  const events = new Map<number, GuideEvent>();
  for (let begin = Math.floor(from / blockLength) * blockLength; begin < to; begin += blockLength) {
    const block = blocks.get(blockKey(begin, row));
    if (!block) return null;
    for (const event of block.events.get(keyOf(channel)) ?? []) events.set(event.start, event);
  }
  const cells: Cell[] = [];
  let at = from;
  for (const event of [...events.values()].sort((one, other) => one.start - other.start)) {
    const begin = Math.max(event.start, at);
    const end = Math.min(event.start + event.duration, to);
    if (end <= begin) continue;
    if (begin > at) cells.push({ from: at, to: begin, event: null });
    cells.push({ from: begin, to: end, event });
    at = end;
  }
  if (at < to) cells.push({ from: at, to, event: null });
  return cells;
}

export async function readDetails(channel: Channel, id: number): Promise<EventDetails> {
  const reply = await television("guide", "event", channel.word, String(id));
  return eventOf(reply["event"] as unknown as Told<EventDetails>);
}
