import { useSignal, type Signal } from "@preact/signals";
import type { Field, ItemType, UriRow } from "../../app/protocol";
import { connection, kindOf } from "../../app/session";
import { isObject, type Json, type JsonObject } from "../../lib/json";
import { buildParameter, describeKind, fieldsOf, type Built, type FormValues } from "./form";
import { outcomes, send, waiting } from "./outcomes";
import { Sample } from "./sample";
import { WaitLine } from "./wait-line";

interface FormProps {
  row: UriRow;
  type: ItemType | null;
}

/** A get is sent without a parameter, or as a "QUERY" if a field has been filled in. */
export function GetForm({ row, type }: FormProps) {
  const values = useSignal<FormValues>({});
  const fields = fieldsOf(type?.query ?? [], row, values.value);
  const built = buildParameter("QUERY", fields, values.value, false, kindOf);
  const parameter = built.filled ? built.parameter : undefined;
  return (
    <RequestForm
      method="get"
      label="Get"
      row={row}
      fields={fields}
      values={values}
      built={built}
      parameter={parameter}
      hint={fields.length === 0 ? "This read takes no parameters." : "Fields that are left empty are not sent."}
    />
  );
}

export function SetForm({ row, type }: FormProps) {
  const values = useSignal<FormValues>({});
  const word = type?.set?.request ?? "";
  const fields = fieldsOf(type?.set?.fields ?? [], row, values.value);
  // A "MODIFY" needs its value; the members of the other request words are optional.
  const required = word === "MODIFY";
  const built = buildParameter(word, fields, values.value, required, kindOf);
  if (!type?.set) return <p class="hint">The description of {row.type} does not say what a set takes.</p>;
  return (
    <RequestForm
      method="set"
      label={word === "ACTION" ? "Run" : "Set"}
      row={row}
      fields={fields}
      values={values}
      built={built}
      parameter={built.parameter}
      hint={
        fields.length === 0
          ? "This action takes no parameters."
          : required
            ? ""
            : "Fields that are left empty are not sent."
      }
    />
  );
}

interface RequestFormProps {
  method: "get" | "set";
  label: string;
  row: UriRow;
  fields: Field[];
  values: Signal<FormValues>;
  built: Built;
  parameter: JsonObject | undefined;
  hint: string;
}

function RequestForm({ method, label, row, fields, values, built, parameter, hint }: RequestFormProps) {
  const { uri } = row;
  const wait = waiting.value.get(uri);
  const blocked = [...built.problems.values()].some((problem) => problem.level === "bad");
  const offline = connection.value.name !== "open";

  function submit(event: Event) {
    event.preventDefault();
    if (!blocked && !offline) void send({ method, uri, parameter });
  }

  return (
    <form onSubmit={submit} aria-label={label}>
      {fields.length > 0 && (
        <Fields list={fields} prefix="" values={values} built={built} current={currentItem(uri)} />
      )}
      {hint && <p class="hint">{hint}</p>}
      <div class="actions">
        <button type="submit" class="button primary" disabled={blocked || offline}>
          {label}
        </button>
        {wait && <WaitLine wait={wait} />}
      </div>
      <Sample call={{ method, params: { uri, ...(parameter ? { parameter } : {}) } }} />
    </form>
  );
}

/** The item of the last response. Its members are the placeholders of empty fields. */
function currentItem(uri: string): JsonObject {
  const answer = outcomes.value.get(uri)?.answer;
  const response = answer && "response" in answer ? answer.response : null;
  return asObject(asArray(asObject(response)["ITEMS"])[0]);
}

const asArray = (value: Json | undefined): Json[] => (Array.isArray(value) ? value : []);
const asObject = (value: Json | undefined): JsonObject => (isObject(value) ? value : {});

interface FieldsProps {
  list: Field[];
  prefix: string;
  values: Signal<FormValues>;
  built: Built;
  current: JsonObject;
}

function Fields({ list, prefix, values, built, current }: FieldsProps) {
  return (
    <div class="fields">
      {list.map((field) => {
        const path = prefix + field.key;
        if (field.value != null) return null;
        if (field.fields) {
          return (
            <fieldset key={path}>
              <legend>{field.key}</legend>
              {field.help && <p class="hint">{field.help}</p>}
              <Fields
                list={field.fields}
                prefix={`${path}.`}
                values={values}
                built={built}
                current={asObject(current[field.key])}
              />
            </fieldset>
          );
        }
        return (
          <FieldInput
            key={path}
            field={field}
            path={path}
            values={values}
            built={built}
            now={current[field.key]}
          />
        );
      })}
    </div>
  );
}

interface FieldInputProps {
  field: Field;
  path: string;
  values: Signal<FormValues>;
  built: Built;
  now: Json | undefined;
}

function FieldInput({ field, path, values, built, now }: FieldInputProps) {
  const kind = kindOf(field);
  const names = field.values;
  const typed = values.value[path] ?? "";
  const problem = built.problems.get(path);
  // An empty field is not marked as wrong.
  const shown = typed === "" && problem?.level === "bad" ? undefined : problem;
  const id = `field-${path}`;
  return (
    <div class="field" data-kind={field.kind}>
      <label for={id}>
        {field.key}
        {field.unit && <span class="unit"> in {field.unit}</span>}
      </label>
      <input
        id={id}
        type="text"
        {...(names ? { list: `${id}-names` } : {})}
        inputMode={kind?.json === "number" ? "numeric" : "text"}
        autocomplete="off"
        spellcheck={false}
        placeholder={typeof now === "string" || typeof now === "number" ? String(now) : ""}
        value={typed}
        aria-describedby={`${id}-about`}
        aria-invalid={shown?.level === "bad"}
        onInput={(event) => (values.value = { ...values.value, [path]: event.currentTarget.value })}
      />
      {names && (
        <datalist id={`${id}-names`}>
          {names.map(({ value, help }) => (
            <option key={value} value={value} {...(help ? { label: `${value} ${help}` } : {})} />
          ))}
        </datalist>
      )}
      <p class="about" id={`${id}-about`}>
        {shown ? (
          <span class={shown.level}>{shown.text}</span>
        ) : (
          <>
            {field.help && `${field.help} · `}
            <span class="quiet">{describeKind(field, kind)}</span>
          </>
        )}
      </p>
    </div>
  );
}
