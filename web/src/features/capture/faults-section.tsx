import { batch, computed, signal } from "@preact/signals";
import { useEffect, useRef } from "preact/hooks";
import { controllable } from "../../app/commands";
import { tellError } from "../../app/session";
import { ClearIcon } from "../../ui/icons";
import { IconButton } from "../../ui/icon-button";
import { Problem } from "../../ui/problem";
import { SearchField } from "../../ui/search-field";
import {
  faultProblem,
  faults,
  functions,
  readFunctions,
  removeFault,
  removeFaults,
  setFault,
  type ContractFunction,
  type Fault,
} from "./capture";
import { label } from "./words";

const mostShown = 60;

// Kept while another view is shown.
const search = signal("");
const chosen = signal("");
const fail = signal("");
const delay = signal("");
const drop = signal(false);
const repeat = signal("");

/** The functions in which each word is found: in the name, a parameter, or an argument of the callback. */
const found = computed(() => {
  const words = search.value.toLowerCase().split(/\s+/).filter(Boolean);
  return (functions.value ?? []).filter(({ name, params, callback }) => {
    const text = [name, ...params, ...(callback ?? [])].join(" ").toLowerCase();
    return words.every((word) => text.includes(word));
  });
});

const chosenFunction = computed(() => functions.value?.find(({ name }) => name === chosen.value));

export function FaultsSection() {
  const input = useRef<HTMLInputElement>(null);
  const canRead = controllable.value;
  useEffect(() => {
    if (canRead && functions.peek() === null) readFunctions().catch(tellError);
  }, [canRead]);
  return (
    <section class="framed capture-section" aria-label={label("IDS_FAULTS")}>
      <h2>{label("IDS_FAULTS")}</h2>
      <ActiveFaults />
      <Problem text={faultProblem.value} />
      <SearchField
        text={search}
        label={label("IDS_SEARCH")}
        placeholder={label("IDS_FAULT_FUNCTIONS")}
        input={input}
      />
      <ul class="fault-functions" aria-label={label("IDS_FAULT_FUNCTIONS")}>
        {found.value.slice(0, mostShown).map((each) => (
          <FunctionLine key={each.name} {...each} />
        ))}
        {found.value.length > mostShown && <li class="quiet">+{found.value.length - mostShown}</li>}
        {functions.value !== null && found.value.length === 0 && <li class="empty">{label("IDS_NOTHING_FOUND")}</li>}
      </ul>
      {chosenFunction.value && <FaultForm {...chosenFunction.value} />}
    </section>
  );
}

/** The form begins empty for each function: a value for callbacks means nothing to a function without one. */
function choose(name: string) {
  batch(() => {
    chosen.value = name;
    for (const text of [fail, delay, repeat]) text.value = "";
    drop.value = false;
  });
}

const FunctionLine = ({ name, params, callback }: ContractFunction) => (
  <li>
    <button type="button" aria-pressed={chosen.value === name} onClick={() => choose(name)}>
      <b>{name}</b>
      <span class="quiet">({params.join(", ")})</span>
      {callback && (
        <span class="fault-callback">
          {label("IDS_CALLBACK_OF")}({callback.join(", ")})
        </span>
      )}
    </button>
  </li>
);

/** The words of the command; empty if no fault is chosen. */
const words = computed(() => [
  ...(fail.value === "" ? [] : ["--fail", fail.value]),
  ...(delay.value === "" ? [] : ["--delay", delay.value]),
  ...(drop.value ? ["--drop-callback"] : []),
  ...(repeat.value === "" ? [] : ["--repeat-callback", repeat.value]),
]);

function FaultForm({ name, callback }: ContractFunction) {
  function submit(event: Event) {
    event.preventDefault();
    void setFault(name, words.peek());
  }
  const without = callback === null;
  return (
    <form class="fault-form" aria-label={name} onSubmit={submit}>
      <code class="fault-chosen">{name}</code>
      <NumberField text={fail} name={label("IDS_FAULT_FAIL")} placeholder="-1" />
      <NumberField text={delay} name={label("IDS_FAULT_DELAY")} min={0} placeholder="500" />
      {without ? (
        <p class="quiet">{label("IDS_FAULT_NO_CALLBACK")}</p>
      ) : (
        <>
          <NumberField
            text={repeat}
            name={label("IDS_FAULT_REPEAT")}
            min={2}
            max={1000}
            placeholder="2"
            disabled={drop.value}
          />
          <label class="check">
            <input
              type="checkbox"
              checked={drop.value}
              disabled={repeat.value !== ""}
              onChange={(event) => (drop.value = event.currentTarget.checked)}
            />
            {label("IDS_FAULT_DROP")}
          </label>
        </>
      )}
      <button type="submit" class="button primary" disabled={!controllable.value || words.value.length === 0}>
        {label("IDS_FAULT_SET")}
      </button>
    </form>
  );
}

interface NumberProps {
  text: typeof fail;
  name: string;
  placeholder: string;
  min?: number;
  max?: number;
  disabled?: boolean;
}

const NumberField = ({ text, name, ...rest }: NumberProps) => (
  <label class="fault-number">
    {name}
    <input
      class="text-field"
      type="number"
      step={1}
      value={text.value}
      onInput={(event) => (text.value = event.currentTarget.value)}
      {...rest}
    />
  </label>
);

function ActiveFaults() {
  if (faults.value === null) return null;
  const active = Object.entries(faults.value);
  if (active.length === 0) return <p class="empty">{label("IDS_FAULTS_NONE")}</p>;
  return (
    <>
      <ul class="fault-list">
        {active.map(([name, fault]) => (
          <li key={name}>
            <code>{name}</code>
            <span>{describe(fault)}</span>
            <IconButton label={`${label("IDS_REMOVE")}: ${name}`} onClick={() => void removeFault(name)}>
              <ClearIcon />
            </IconButton>
          </li>
        ))}
      </ul>
      <button type="button" class="button small" onClick={() => void removeFaults()}>
        {label("IDS_REMOVE_ALL")}
      </button>
    </>
  );
}

function describe({ fails, result, delay_ms, drop_callback, repeat_callback }: Fault): string {
  const texts = [];
  if (fails) texts.push(`${label("IDS_FAULT_FAIL")} ${result}`);
  if (delay_ms > 0) texts.push(`${label("IDS_FAULT_DELAY")}: ${delay_ms}`);
  if (drop_callback) texts.push(label("IDS_FAULT_DROP"));
  if (repeat_callback > 1) texts.push(`${label("IDS_FAULT_REPEAT")}: ${repeat_callback}`);
  return texts.join(" · ");
}
