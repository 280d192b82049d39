import { batch, computed, signal } from "@preact/signals";
import { attempt } from "../../app/commands";
import { television, textOf } from "../../app/session";
import { token } from "../../lib/token";

/** Records of the host, and faults of the platform's functions. */

export interface Status {
  recording: boolean;
  /** Whether there is a record to download; the numbers are known only then. */
  kept: boolean;
  seconds?: number;
  requests?: number;
  calls?: number;
  callbacks?: number;
  notifications?: number;
  bytes?: number;
  limit?: number;
  /** Why the record ended by itself. */
  reason?: string;
  /** The record that answers in place of a television. */
  replay?: { file: string; step: number; steps: number; different: number; differences: string[] };
}

export interface Fault {
  delay_ms: number;
  fails: number;
  result: number;
  drop_callback: number;
  repeat_callback: number;
}

export interface ContractFunction {
  name: string;
  params: string[];
  /** The arguments of the callback that it registers. */
  callback: string[] | null;
}

/** Null until they are known. */
export const status = signal<Status | null>(null);
export const faults = signal<Readonly<Record<string, Fault>> | null>(null);
export const functions = signal<ContractFunction[] | null>(null);
/** Why the latest command failed. */
export const captureProblem = signal("");
export const faultProblem = signal("");

export const faultCount = computed(() => Object.keys(faults.value ?? {}).length);

export async function readCapture() {
  const [read, listed] = await Promise.all([television("capture", "status"), television("faults")]);
  batch(() => {
    status.value = read as unknown as Status;
    faults.value = listed["faults"] as unknown as Record<string, Fault>;
  });
}

/** The functions stay the same while the host runs. */
export async function readFunctions() {
  const { functions: listed } = await television("faults", "functions");
  functions.value = listed as unknown as ContractFunction[];
}

export async function capture(action: "start" | "stop") {
  const reply = await attempt<Status>(captureProblem, "capture", action);
  if (reply) status.value = reply;
}

async function changeFault(...words: string[]) {
  await attempt(faultProblem, "fault", ...words);
  await readCapture().catch(() => undefined);
}

export const setFault = (name: string, words: string[]): Promise<void> => changeFault(name, ...words);
export const removeFault = (name: string): Promise<void> => changeFault(name, "--clear");
export const removeFaults = (): Promise<void> => changeFault("--clear");

/** Saves what the host serves at the path, which requires the token, as a file of the browser. */
export async function download(path: string, name: string) {
  try {
    const answer = await fetch(path, { headers: { authorization: `Bearer ${token() ?? ""}` } });
    if (!answer.ok) throw new Error(((await answer.json()) as { error: string }).error);
    const link = document.createElement("a");
    link.href = URL.createObjectURL(await answer.blob());
    link.download = name;
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 60_000);
    captureProblem.value = "";
  } catch (reason) {
    captureProblem.value = textOf(reason);
  }
}
