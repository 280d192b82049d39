import type { Signal } from "@preact/signals";
import type { Field } from "../../app/protocol";
import { kindOf } from "../../app/session";
import { isObject, type Json, type JsonObject } from "../../lib/json";
import { describeKind, type Built, type FormValues } from "./form";
import { label } from "./words";

interface FieldsProps {
  list: Field[];
  prefix: string;
  values: Signal<FormValues>;
  built: Built;
  /** The item of the last response. Its members are the placeholders of empty fields. */
  current: JsonObject;
}

const asObject = (value: Json | undefined): JsonObject => (isObject(value) ? value : {});

export function Fields({ list, prefix, values, built, current }: FieldsProps) {
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
        {field.unit && <span class="unit"> {label("IDS_IN_UNIT", field.unit)}</span>}
      </label>
      <input
        id={id}
        type="text"
        {...(names ? { list: `${id}-names` } : {})}
        inputMode={kind?.json === "number" ? "numeric" : "text"}
        autocomplete="off"
        spellcheck={false}
        placeholder={["string", "number", "bigint"].includes(typeof now) ? String(now) : ""}
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
