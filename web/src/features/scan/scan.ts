import { batch, signal } from "@preact/signals";
import { attempt } from "../../app/commands";
import { television } from "../../app/session";

/** The scan for services, and the antenna that it searches. */

export const media = ["all", "air", "cable", "satellite"] as const;
export type Medium = (typeof media)[number];

export interface Scan {
  state: "none" | "running" | "done" | "cancelled" | "failed";
  medium?: string;
  update?: boolean;
  percent?: number;
  /** The latest multiplex, from 1, of so many. */
  multiplex?: number;
  multiplexes?: number;
  /** The medium and the frequency that the scan is at. */
  at?: string;
  mhz?: number;
  strength?: number;
  quality?: number;
  /** Found so far. */
  services?: number;
  seconds?: number;
  messages?: string[];
  added?: number;
  changed?: number;
  removed?: number;
}

export interface Multiplex {
  file: string;
  medium: string;
  mhz: number;
  network: number;
  stream: number;
  services: number;
  strength: number;
  quality: number;
}

export interface Antenna {
  folder: string | null;
  /** The file of the folder that is being read. */
  reading?: { file: string; number: number; of: number };
  problem?: string;
  multiplexes: Multiplex[];
  refused: { file: string; why: string }[];
  /** An empty object for a tuner that receives nothing. */
  tuners: { file?: string; users?: number }[];
}

const runningPauseMs = 400;
const idlePauseMs = 2000;

/** Null until they are known. */
export const scan = signal<Scan | null>(null);
export const antenna = signal<Antenna | null>(null);
/** Why the scan could not be started or cancelled. */
export const scanProblem = signal("");

export const pauseMs = (): number => (scan.peek()?.state === "running" ? runningPauseMs : idlePauseMs);

export async function readScan() {
  const [running, received] = await Promise.all([television("scan"), television("antenna")]);
  batch(() => {
    scan.value = running as unknown as Scan;
    antenna.value = received as unknown as Antenna;
  });
}

async function send(...words: string[]) {
  const reply = await attempt<Scan>(scanProblem, "scan", ...words);
  if (reply) scan.value = reply;
}

/** With `update`, the lists and what the viewer changed in them are kept. */
export const startScan = (medium: Medium, update: boolean): Promise<void> =>
  send(medium, ...(update ? ["update"] : []));
export const cancelScan = (): Promise<void> => send("cancel");
