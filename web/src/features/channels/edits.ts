import { signal, type Signal } from "@preact/signals";
import { attempt } from "../../app/commands";
import { readChannels, type Channel } from "./channels";

/** The changes that a viewer makes to a channel. */

/** The word of the channel whose editor is open; empty if none is. */
export const edited = signal("");
export const favouriteProblem = signal("");

interface ChangedReply {
  list: string;
  number: number;
  minor?: number;
}

/** Sends a change of the channel. Returns whether the set accepted it. */
export async function change(channel: Channel, problem: Signal<string>, ...words: string[]): Promise<boolean> {
  const reply = await attempt<ChangedReply>(problem, "channel", channel.word, ...words);
  if (!reply) return false;
  await readChannels();
  return true;
}

/** Gives the channel another number. Its editor stays open. */
export async function renumber(channel: Channel, problem: Signal<string>, number: string): Promise<boolean> {
  const reply = await attempt<ChangedReply>(problem, "channel", channel.word, "number", number);
  if (!reply) return false;
  edited.value = `${reply.list}:${reply.number}${reply.minor === undefined ? "" : `.${reply.minor}`}`;
  await readChannels();
  return true;
}

export async function toggleFavourite(channel: Channel) {
  const action = channel.favourite ? "remove" : "add";
  if (await attempt(favouriteProblem, "favourite", channel.word, action)) await readChannels();
}
