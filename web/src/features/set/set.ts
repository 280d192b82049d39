import { signal, type Signal } from "@preact/signals";
import { attempt } from "../../app/commands";
import { television } from "../../app/session";

/** The virtual television's own state, as its command "state all" reports it. */
export interface SetState {
  power: "on" | "standby";
  /** Null while no channel is watched. */
  channel: number | null;
  channel_name?: string;
  /** The name of the source. */
  source: string;
  /** The key that was pressed last; empty if none was. */
  key: string;
  volume: number;
  mute: boolean;
  message?: { word: string; about: string; text: string };
  clock: { local: string; zone: string; sleep_seconds: number };
  applications: { hbbtv: { enabled: boolean; uri: string }; portal: { mode: string }; native_app: string };
  sources: { number: number; name: string; blocked: boolean; connected: boolean; signal: boolean; device?: string }[];
  sticks: { device: string; label: string; folder: string }[];
  network: { cable: string; interfaces: Record<string, { kind: string; state: string; addresses: string[] }> };
  cec: { device: string; name: string; address: string; plugged: boolean; power: string; active: boolean }[];
}

/** Null until the set has answered. */
export const state = signal<SetState | null>(null);

export async function readState() {
  state.value = (await television("state", "all")) as unknown as SetState;
}

/** Sends a command that changes the set, and reads the state again. Returns whether the set accepted the command. */
export async function change(problem: Signal<string>, ...words: string[]): Promise<boolean> {
  const done = (await attempt(problem, ...words)) !== null;
  await readState().catch(() => undefined); // the next poll says why
  return done;
}
